#include "shaper/htb_shaper.h"

#include <linux/netlink.h>

#include <utility>

#include "cli/system.h"
#include "shaper/address_set.h"
#include "shaper/connections.h"
#include "shaper/desired_state.h"
#include "shaper/hardware.h"
#include "shaper/packet_steering.h"
#include "shaper/session.h"
#include "tc/firewall_rules.h"
#include "tc/htb_class.h"
#include "tc/links.h"
#include "tc/make_intf.h"

namespace quenby {

HtbShaper::HtbShaper()
    : route_(open_socket(NETLINK_ROUTE)),
      netfilter_(open_socket(NETLINK_NETFILTER)),
      links_(open_link_cache(route_)) {
  read_psched_hz();
}

void HtbShaper::create(GlobalSet set, TariffSet tariffs) {
  const bool has_wan = !set.global.wan.empty();
  const std::int64_t speed = link_speed(set.global.wan);
  const ResolvedSettings settings = resolve(std::move(set), std::move(tariffs), speed);

  const Devices both = devices(settings.line.global);
  clean_rules(both, has_wan && needs_drop_chain(settings.line));
  if (has_wan) create_ipset();
  const DesiredState wanted =
      desired_state(settings, {link_exists(settings.line), has_wan ? board_name() : std::string()});
  run_list(wanted.steering);
  for (const Direction way : kDirections) {
    both.at(way).setup(wanted.tree(way));
    both.at(way).create_leaves(wanted.tree(way));
  }
  add_ipset_entries(wanted.addresses);
  run_list(wanted.firewall);
  if (has_wan) mend_marks(netfilter_, MarkTable(wanted.addresses), any_mark());
}

bool HtbShaper::link_exists(const GlobalSet& set) const {
  return index_of(links_.get(), set.global.wan) != 0;
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

void HtbShaper::create_ipset() { create_address_set(netfilter_); }

void HtbShaper::delete_ipset() { flush_address_set(netfilter_); }

void HtbShaper::add_ipset_item(std::uint32_t address, std::uint64_t number) {
  add_address(netfilter_, address_set_entry(address, number));
}

void HtbShaper::del_ipset_item(std::uint32_t address) { delete_address(netfilter_, address); }

void HtbShaper::add_ipset_tariffs(const TariffSet& set) {
  add_ipset_entries(address_set_entries(set));
}

void HtbShaper::add_ipset_entries(const std::vector<AddressSetEntry>& entries) {
  for (const AddressSetEntry& entry : entries) add_address(netfilter_, entry);
}

void HtbShaper::del_ipset_tariffs(const TariffSet& set) {
  for (const AddressSetEntry& entry : address_set_entries(set)) del_ipset_item(entry.address);
}

void HtbShaper::mend_connections(const TariffSet& tariffs, const MarkFilter& filter) {
  mend_marks(netfilter_, MarkTable(address_set_entries(tariffs)), filter);
}

void HtbShaper::set_rps(const GlobalSet& set) {
  run_list(steering_command(board_name(), set.global.wan));
}

void HtbShaper::clean_rps(const GlobalSet& set) {
  run_list(steering_reset_command(board_name(), set.global.wan));
}

std::unique_ptr<HtbIntf> HtbShaper::device(const GlobalSettings& settings, Direction way) {
  return make_intf(settings, way, route_, links_);
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
