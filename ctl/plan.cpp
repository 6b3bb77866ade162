#include "ctl/plan.h"

#include <net/if.h>

#include <iostream>
#include <map>
#include <memory>
#include <nlohmann/json.hpp>

#include "cli/refused.h"
#include "config/paths.h"
#include "ctl/plan_output.h"
#include "ctl/readable.h"
#include "shaper/hardware.h"
#include "shaper/session.h"

namespace quenby {
namespace {

struct PlanOptions {
  std::string command = "load";
  std::string argument;
  bool json = false;
};

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

PlanFacts facts_for(const Edit& edit) {
  const std::string& wan = edit.line.global.wan;
  PlanFacts facts;
  facts.link_speed = link_speed(wan);
  facts.router.has_wan = !wan.empty() && if_nametoindex(wan.c_str()) != 0;
  if (!wan.empty() || !edit.line_before.global.wan.empty()) facts.router.board = board_name();
  return facts;
}

Edit read_edit(const PlanOptions& options) {
  const Reading& reading = readings().at(options.command);
  const bool wanted = reading.argument != Reading::Argument::none;
  if (wanted == options.argument.empty()) {
    throw NotRun("plan " + options.command +
                 (wanted ? " needs an argument" : " takes no argument"));
  }
  for (const std::string& stored : {kGlobalFile, kTariffFile}) expect_readable(stored);
  if (reading.argument == Reading::Argument::file) expect_readable(options.argument);
  return reading.read(options.argument);
}

Status plan(const PlanOptions& options) {
  try {
    const Edit edit = read_edit(options);
    read_psched_hz();
    const Plan plan = plan_of(edit, facts_for(edit));
    if (options.json) {
      std::cout << to_json(plan).dump(2, ' ', false, nlohmann::json::error_handler_t::replace)
                << '\n';
    } else {
      std::cout << to_text(plan);
    }
    return kFine;
  } catch (const Refused& refused) {
    std::cerr << "quenbyctl: quenby refuses this: " << refused.what() << '\n';
    if (refused.error()) std::cerr << refused.error()->text() << '\n';
    return kFindings;
  }
}

}  // namespace

void add_plan(CLI::App& app, Work& work) {
  CLI::App* const command =
      app.add_subcommand("plan", "Say what a command of quenby would do, and do nothing");
  const auto options = std::make_shared<PlanOptions>();
  std::vector<std::string> names;
  for (const auto& [name, reading] : readings()) names.push_back(name);
  command->add_option("command", options->command, "The command, load if none is given")
      ->check(CLI::IsMember(names));
  command->add_option("argument", options->argument, "Its file, or the tariff's name");
  command->add_flag("--json", options->json, "Print JSON");
  command->callback([options, &work] { work = [options] { return plan(*options); }; });
}

}  // namespace quenby
