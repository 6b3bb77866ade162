#include "shaper/htb_shaper.h"

#include <utility>

#include "cli/error.h"
#include "cli/system.h"
#include "model/rate_resolution.h"
#include "shaper/address_set.h"
#include "shaper/connections.h"
#include "shaper/desired_state.h"
#include "shaper/hardware.h"
#include "shaper/ipv6_note.h"
#include "shaper/packet_steering.h"
#include "tc/firewall_rules.h"
#include "tc/htb_class.h"
#include "tc/links.h"
#include "tc/make_intf.h"

namespace quenby {

void HtbShaper::create(GlobalSet set, TariffSet tariffs) {
  const bool has_wan = !set.global.wan.empty();
  const std::int64_t speed = link_speed(set.global.wan);
  const ResolvedSettings settings = resolve(std::move(set), std::move(tariffs), speed);

  const Devices both = devices(settings.configured.global);
  const bool drops = has_wan && needs_drop_chain(settings);
  clean_rules(both, drops);
  if (has_wan) create_ipset();
  const bool ipv6 = settings.configured.global.shapes_ipv6();
  if (ipv6) {
    begin_ip6(drops);
  } else if (ipv6_is_noted()) {
    // What it leaves stays noted, and keeps nobody from shaping IPv4.
    clear_ip6();
  }
  const DesiredState wanted = desired_state(
      settings, {link_exists(settings.configured), has_wan ? board_name() : std::string()});
  run_list(wanted.steering);
  for (const Direction way : kDirections) {
    both.at(way).setup(wanted.tree(way));
    both.at(way).create_leaves(wanted.tree(way));
  }
  add_ipset_entries(wanted.addresses);
  add_ipset_entries(wanted.prefixes);
  run_list(wanted.firewall);
  run_list(wanted.ip6_firewall);
  const MarkTable marks(wanted.addresses, wanted.prefixes);
  if (has_wan) mend_marks(session_.netfilter, marks, any_mark());
  if (ipv6) mend_ip6_marks(session_.netfilter, marks, any_mark());
}

void HtbShaper::begin_ip6(bool drop_chain) {
  note_ipv6();
  run_list(ip6_begin_list(drop_chain));
  create_address_set(session_.netfilter, Family::ipv6);
}

bool HtbShaper::clear_ip6() {
  if (!run_commands(ip6_end_list())) return false;
  flush_prefix_set(session_.netfilter);
  forget_ipv6();
  return true;
}

bool HtbShaper::link_exists(const GlobalSet& set) const {
  return index_of(session_.links.get(), set.global.wan) != 0;
}

void HtbShaper::clear(const GlobalSet& set) {
  const Devices both = devices(set.global);
  std::string commands = firewall_start_command();
  both.download->fill_clean_fw_rules(commands);
  both.upload->fill_clean_fw_rules(commands);
  append_commands(commands, firewall_end_commands());
  run_or_exit(commands);

  if (!set.global.wan.empty()) {
    delete_ipset();
    clean_rps(set);
  }
  both.download->teardown(set);
  both.upload->teardown(set);
  if (ipv6_is_noted() && !clear_ip6()) fail_silently("a command of ip6tables failed");
}

void HtbShaper::del_global(const GlobalSet& set, const TariffConfig& tariffs) {
  clear(set);
  // Without a tariff nothing is left to shape, and the IMQ device may be more than the kernel has.
  if (tariffs.empty()) return;
  const TariffSet& all = tariffs;
  create(GlobalSet(), all);
}

void HtbShaper::class_stat(const GlobalSet& set, const TariffConfig& tariffs) {
  for (const Direction way : kDirections) device(set.global, way)->class_stat(tariffs);
}

void HtbShaper::create_ipset() { create_address_set(session_.netfilter); }

void HtbShaper::delete_ipset() { flush_address_set(session_.netfilter); }

void HtbShaper::add_ipset_item(std::uint32_t address, std::uint64_t number) {
  add_address(session_.netfilter, address_set_entry(address, number));
}

void HtbShaper::del_ipset_item(std::uint32_t address) {
  delete_address(session_.netfilter, address);
}

void HtbShaper::add_ipset_tariffs(const TariffSet& set) {
  add_ipset_entries(address_set_entries(set));
}

void HtbShaper::del_ipset_tariffs(const TariffSet& set) {
  del_ipset_entries(address_set_entries(set));
}

void HtbShaper::mend_connections(const TariffSet& tariffs, bool ipv6, const MarkFilter& filter) {
  const MarkTable marks(address_set_entries(tariffs), prefix_set_entries(tariffs));
  mend_marks(session_.netfilter, marks, filter);
  if (ipv6) mend_ip6_marks(session_.netfilter, marks, filter);
}

void HtbShaper::set_rps(const GlobalSet& set) {
  run_list(steering_command(board_name(), set.global.wan));
}

void HtbShaper::clean_rps(const GlobalSet& set) {
  run_list(steering_reset_command(board_name(), set.global.wan));
}

std::unique_ptr<HtbIntf> HtbShaper::device(const GlobalSettings& settings, Direction way) {
  return make_intf(settings, way, session_.route, session_.links);
}

HtbShaper::Devices HtbShaper::devices(const GlobalSettings& settings) {
  return {device(settings, Direction::upload), device(settings, Direction::download)};
}

void HtbShaper::clean_rules(const Devices& devices, bool drop_chain) {
  std::string commands;
  devices.upload->fill_clean_fw_rules(commands);
  devices.download->fill_clean_fw_rules(commands);
  if (drop_chain) append_commands(commands, drop_chain_commands());
  run_list(commands);
}

}  // namespace quenby
