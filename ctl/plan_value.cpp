#include "ctl/plan_value.h"

#include <sstream>
#include <utility>

#include "ctl/plan_sections.h"
#include "model/rate_resolution.h"
#include "shaper/packet_steering.h"
#include "shaper/tariff_change.h"
#include "tc/firewall_rules.h"

namespace quenby {
namespace {

void append_list(std::vector<std::string>& commands, const std::string& list) {
  std::istringstream in(list);
  for (std::string command; std::getline(in, command, ';');) commands.push_back(command);
}

// Makes a plan of one command.
class Planner {
 public:
  Planner(const Edit& edit, const PlanFacts& facts)
      : edit_(edit), facts_(facts), ipv6_noted_(facts.ipv6_noted) {}

  Plan plan();

 private:
  void change();
  void keep_line_only(const TariffChange& change);
  void rebuild(const char* reason);
  // What comes after a teardown, or without one.
  void build(const ResolvedSettings& settings, const char* reason);
  void tear_down();
  // Takes away what may be left of IPv6.
  void clear_ip6();
  void hold(const ResolvedSettings& settings);
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
  bool ipv6_noted_;
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
  const bool stands = !wan_missing && (!facts_.stands || facts_.stands(change.before));
  if (change.reason == ChangeReason::in_place && stands) {
    plan_.way = PlannedWay::in_place;
    plan_.reason = "only the changed tariffs' own objects differ";
    hold(change.after);
    touch_alone(edit_.added);
  } else if (change.reason == ChangeReason::last_tariff) {
    keep_line_only(change);
  } else {
    if (has_wan && needs_drop_chain(change.before)) {
      append_list(plan_.commands, drop_chain_commands());
      if (edit_.line.global.shapes_ipv6())
        append_list(plan_.commands, drop_chain_commands(Family::ipv6));
    }
    build(change.after, change.rebuild() ? reason_text(change.reason)
                        : wan_missing    ? "rebuild: the WAN interface is missing"
                                         : "rebuild: something that a change relies on is missing");
  }
}

void Planner::keep_line_only(const TariffChange& change) {
  if (!edit_.line.has_global) return tear_down();
  plan_.way = PlannedWay::anew;
  plan_.reason = reason_text(change.reason);
  const bool blocked = needs_drop_chain(change.before) || needs_drop_chain(change.after);
  const bool drops = blocked && !edit_.line.global.wan.empty();
  const DesiredState wanted = state(change.after);
  append_list(plan_.commands, clean_list(Family::ipv4, drops));
  if (wanted.ipv6) append_list(plan_.commands, clean_list(Family::ipv6, drops));
  append_list(plan_.commands, wanted.firewall);
  append_list(plan_.commands, wanted.ip6_firewall);
  hold(change.after);
}

void Planner::clear_ip6() {
  if (std::exchange(ipv6_noted_, false)) append_list(plan_.commands, ip6_end_list());
}

void Planner::rebuild(const char* reason) {
  tear_down();
  if (is_shaped(edit_.line, edit_.tariffs)) build(resolved(), reason);
}

void Planner::build(const ResolvedSettings& settings, const char* reason) {
  plan_.way = PlannedWay::anew;
  plan_.reason = reason;
  const bool drops = !settings.configured.global.wan.empty() && needs_drop_chain(settings);
  const DesiredState wanted = state(settings);
  append_list(plan_.commands, clean_list(Family::ipv4, drops));
  if (wanted.ipv6) {
    append_list(plan_.commands, ip6_begin_list(drops));
  } else {
    clear_ip6();
  }
  append_list(plan_.commands, wanted.steering);
  append_list(plan_.commands, wanted.firewall);
  append_list(plan_.commands, wanted.ip6_firewall);
  hold(settings);
}

void Planner::tear_down() {
  plan_.way = PlannedWay::removal;
  plan_.reason = edit_.line.global.enabled ? "nothing is left to shape" : "shaping is not enabled";
  for (const std::string& list : {firewall_start_command(), clean_rules(), firewall_end_commands()})
    append_list(plan_.commands, list);
  const std::string& wan = edit_.line_before.global.wan;
  if (!wan.empty()) append_list(plan_.commands, steering_reset_command(facts_.router.board, wan));
  clear_ip6();
}

void Planner::hold(const ResolvedSettings& settings) {
  plan_.classes = planned_classes(settings, state(settings));
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
