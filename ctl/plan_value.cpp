#include "ctl/plan_value.h"

#include <algorithm>
#include <map>
#include <sstream>

#include "ctl/plan_sections.h"
#include "shaper/packet_steering.h"
#include "shaper/tariff_change.h"
#include "tc/firewall_rules.h"
#include "tc/qdisc.h"

namespace quenby {
namespace {

constexpr unsigned kImqUploadOffset = 0x8000;

void append_list(std::vector<std::string>& commands, const std::string& list) {
  std::istringstream in(list);
  for (std::string command; std::getline(in, command, ';');) commands.push_back(command);
}

std::string name_of(unsigned number, const std::map<unsigned, const TariffSettings*>& tariffs) {
  if (number == kRootClass) return "root";
  if (number == kDefaultClass) return "system";
  if (number == kDefaultTariffClass) return DefaultSettings::printName();
  return tariffs.at(number)->name;
}

// Makes a plan of one command.
class Planner {
 public:
  Planner(const Edit& edit, const PlanFacts& facts) : edit_(edit), facts_(facts) {}

  Plan plan();

 private:
  void change();
  void keep_line_only(const TariffChange& change);
  void rebuild(const char* reason);
  // What comes after a teardown, or without one.
  void build(const ResolvedSettings& settings, const char* reason);
  void tear_down();
  void hold(const ResolvedSettings& settings);
  void hold_direction(const ResolvedSettings& settings, const DesiredState& state, Direction way);
  void touch_alone(const TariffSet& tariffs);

  ResolvedSettings resolved() const {
    const TariffSet& tariffs = edit_.tariffs;
    return resolve(edit_.line, tariffs, facts_.link_speed);
  }
  DesiredState state(const ResolvedSettings& settings) const {
    return desired_state(settings, facts_.router);
  }

  const Edit& edit_;
  const PlanFacts& facts_;
  Plan plan_;
};

Plan Planner::plan() {
  compare_sections(edit_, plan_.line, plan_.added, plan_.removed, plan_.changed);
  switch (edit_.work) {
    case KernelWork::none:
      plan_.reason = "shaping is not enabled: the files alone change";
      break;
    case KernelWork::change:
      change();
      break;
    case KernelWork::rebuild:
      rebuild(edit_.save_line ? "the line is another one"
                              : "the class numbers are handed out again");
      break;
    case KernelWork::rebuild_always:
      tear_down();
      build(resolved(), "the list is new, or its class numbers do not fit");
      break;
    case KernelWork::build:
      if (is_shaped(edit_.line, edit_.tariffs)) {
        build(resolved(), "a load builds everything");
      } else {
        tear_down();
      }
      break;
  }
  return plan_;
}

void Planner::change() {
  const TariffChange change =
      plan_change(edit_.line, edit_.stored, edit_.removed, edit_.added, facts_.link_speed);
  const bool has_wan = !edit_.line.global.wan.empty();
  const bool wan_missing = has_wan && !facts_.router.has_wan;
  if (change.reason == ChangeReason::in_place && !wan_missing) {
    plan_.way = PlannedWay::in_place;
    plan_.reason = "only the changed tariffs' own objects differ";
    hold(change.after);
    touch_alone(edit_.added);
  } else if (change.reason == ChangeReason::last_tariff) {
    keep_line_only(change);
  } else {
    if (has_wan && needs_drop_chain(change.before.line))
      append_list(plan_.commands, drop_chain_commands());
    build(change.after,
          change.rebuild() ? reason_text(change.reason) : "rebuild: the WAN interface is missing");
  }
}

void Planner::keep_line_only(const TariffChange& change) {
  if (!edit_.line.has_global) return tear_down();
  plan_.way = PlannedWay::anew;
  plan_.reason = reason_text(change.reason);
  const bool blocked = needs_drop_chain(change.before.line) || needs_drop_chain(change.after.line);
  append_list(plan_.commands, clean_rules());
  if (blocked && !edit_.line.global.wan.empty()) append_list(plan_.commands, drop_chain_commands());
  append_list(plan_.commands, state(change.after).firewall);
  hold(change.after);
}

void Planner::rebuild(const char* reason) {
  tear_down();
  if (is_shaped(edit_.line, edit_.tariffs)) build(resolved(), reason);
}

void Planner::build(const ResolvedSettings& settings, const char* reason) {
  plan_.way = PlannedWay::anew;
  plan_.reason = reason;
  append_list(plan_.commands, clean_rules());
  if (!settings.line.global.wan.empty() && needs_drop_chain(settings.line))
    append_list(plan_.commands, drop_chain_commands());
  const DesiredState wanted = state(settings);
  append_list(plan_.commands, wanted.steering);
  append_list(plan_.commands, wanted.firewall);
  hold(settings);
}

void Planner::tear_down() {
  plan_.way = PlannedWay::removal;
  plan_.reason = edit_.line.global.enabled ? "nothing is left to shape" : "shaping is not enabled";
  for (const std::string& list : {firewall_start_command(), clean_rules(), firewall_end_commands()})
    append_list(plan_.commands, list);
  const std::string& wan = edit_.line_before.global.wan;
  if (!wan.empty()) append_list(plan_.commands, steering_reset_command(facts_.router.board, wan));
}

void Planner::hold(const ResolvedSettings& settings) {
  const DesiredState wanted = state(settings);
  for (const Direction way : kDirections) hold_direction(settings, wanted, way);
}

void Planner::hold_direction(const ResolvedSettings& settings, const DesiredState& state,
                             Direction way) {
  std::map<unsigned, const TariffSettings*> tariffs;
  for (const TariffSettings& tariff : settings.tariffs.tariffs())
    tariffs[static_cast<unsigned>(tariff.id)] = &tariff;
  const bool by_mark = !settings.line.global.wan.empty();
  const unsigned offset = !by_mark && way == Direction::upload ? kImqUploadOffset : 0;
  const auto note = [&](const ClassBranch& branch, bool of_line) {
    PlannedClass planned;
    planned.way = way;
    planned.device = way == Direction::download ? state.download_device : state.upload_device;
    planned.number = (branch.htb.handle & 0xffffU) - offset;
    planned.name = name_of(planned.number, tariffs);
    planned.htb = branch.htb;
    if (branch.leaf) planned.leaf = kind_name(branch.leaf->kind);
    if (by_mark && planned.number >= kDefaultTariffClass) planned.mark = class_mark(planned.number);
    if (!of_line) planned.addresses = tariffs.at(planned.number)->addresses;
    plan_.classes.push_back(std::move(planned));
  };
  for (const ClassBranch& branch : state.tree(way).line) note(branch, true);
  for (const ClassBranch& branch : state.tree(way).tariffs) note(branch, false);
}

void Planner::touch_alone(const TariffSet& tariffs) {
  for (PlannedClass& planned : plan_.classes) {
    planned.touched = planned.number == kRootClass ||
                      (planned.number > kDefaultTariffClass && tariffs.exists(planned.name));
  }
}

}  // namespace

Plan plan_of(const Edit& edit, const PlanFacts& facts) { return Planner(edit, facts).plan(); }

}  // namespace quenby
