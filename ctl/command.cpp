#include "ctl/command.h"

#include <map>

#include "config/paths.h"
#include "ctl/readable.h"
#include "ctl/status.h"

namespace quenby {
namespace {

// How a command is read. None takes no argument, a file is read before all else.
struct Reading {
  enum class Argument { none, file, name } argument;
  Edit (*read)(const std::string& argument);
};

const std::map<std::string, Reading>& readings() {
  using Argument = Reading::Argument;
  static const std::map<std::string, Reading> kReadings = {
      {"load", {Argument::none, [](const std::string&) { return edit_of_load(); }}},
      {"tariff-add", {Argument::file, edit_of_add}},
      {"tariff-update", {Argument::file, edit_of_tariff_update}},
      {"tariff-del", {Argument::name, edit_of_delete}},
      {"update", {Argument::file, edit_of_update}},
      {"global-update", {Argument::file, edit_of_global_update}},
  };
  return kReadings;
}

}  // namespace

std::vector<std::string> command_names() {
  std::vector<std::string> names;
  for (const auto& [name, reading] : readings()) names.push_back(name);
  return names;
}

Edit edit_of(const Command& command, const std::string& subcommand) {
  const Reading& reading = readings().at(command.name);
  const bool wanted = reading.argument != Reading::Argument::none;
  if (wanted == command.argument.empty()) {
    throw NotRun(subcommand + " " + command.name +
                 (wanted ? " needs an argument" : " takes no argument"));
  }
  for (const std::string& stored : {kGlobalFile, kTariffFile}) expect_readable(stored);
  if (reads_file(command)) expect_readable(command.argument);
  return reading.read(command.argument);
}

bool reads_file(const Command& command) {
  return readings().at(command.name).argument == Reading::Argument::file;
}

std::vector<std::string> program_arguments(const Command& command) {
  std::vector<std::string> arguments = {"--" + command.name};
  if (!command.argument.empty()) arguments.push_back(command.argument);
  return arguments;
}

std::string to_text(const Command& command) {
  return command.argument.empty() ? command.name : command.name + " " + command.argument;
}

}  // namespace quenby
