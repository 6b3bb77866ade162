#include "ctl/change_record.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <ctime>
#include <fstream>
#include <nlohmann/json.hpp>
#include <random>

#include "ctl/json.h"
#include "ctl/status.h"

namespace quenby {
namespace {

std::string random_id() {
  std::random_device device;
  std::array<char, 9> digits{};
  std::snprintf(digits.data(), digits.size(), "%08x", device());
  return digits.data();
}

std::string this_boot() {
  std::ifstream file("/proc/sys/kernel/random/boot_id");
  std::string id;
  std::getline(file, id);
  if (id.empty()) throw NotRun("cannot read /proc/sys/kernel/random/boot_id");
  return id;
}

}  // namespace

ChangeRecord new_record(const std::string& command) {
  ChangeRecord record;
  record.id = random_id();
  record.command = command;
  record.boot = this_boot();
  return record;
}

std::string to_text(const ChangeRecord& record) {
  const nlohmann::json json = {{"id", record.id},
                               {"command", record.command},
                               {"boot", record.boot},
                               {"waiting", record.state == ChangeState::waiting},
                               {"deadline", record.deadline},
                               {"had_global", record.had_global},
                               {"had_tariffs", record.had_tariffs},
                               {"former_wan", record.former_wan},
                               {"wan", record.wan},
                               {"was_wanted", record.was_wanted},
                               {"had_note", record.had_note}};
  return printed(json);
}

ChangeRecord record_from(const std::string& text, const std::string& path) {
  try {
    const nlohmann::json json = nlohmann::json::parse(text);
    ChangeRecord record;
    record.id = json.at("id");
    record.command = json.at("command");
    record.boot = json.at("boot");
    if (json.at("waiting").get<bool>()) record.state = ChangeState::waiting;
    record.deadline = json.at("deadline");
    record.had_global = json.at("had_global");
    record.had_tariffs = json.at("had_tariffs");
    record.former_wan = json.at("former_wan");
    record.wan = json.at("wan");
    record.was_wanted = json.at("was_wanted");
    record.had_note = json.at("had_note");
    return record;
  } catch (const nlohmann::json::exception& e) {
    throw NotRun(path + " is damaged: " + e.what());
  }
}

std::int64_t now_ms() {
  timespec now{};
  clock_gettime(CLOCK_BOOTTIME, &now);
  return std::int64_t{now.tv_sec} * 1000 + now.tv_nsec / 1'000'000;
}

bool is_of_this_boot(const ChangeRecord& record) { return record.boot == this_boot(); }

std::string describe(const ChangeRecord& record) {
  const std::string back = "\"quenbyctl apply --take-back\" takes it back";
  if (record.state != ChangeState::waiting)
    return "a change was interrupted (" + record.command + "): " + back;
  std::string left = "the router was restarted meanwhile";
  if (is_of_this_boot(record)) {
    const std::int64_t seconds = (record.deadline - now_ms() + 999) / 1000;
    left = std::to_string(std::max(seconds, std::int64_t{0})) + " s left";
  }
  return "a change waits for its confirmation (" + record.command + "; " + left +
         "): \"quenbyctl confirm\" keeps it, " + back;
}

}  // namespace quenby
