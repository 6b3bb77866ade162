#include "shaper/htb_shaper.h"

#include <linux/netlink.h>
#include <netlink/utils.h>

#include "cli/system.h"
#include "shaper/address_set.h"
#include "shaper/firewall.h"
#include "shaper/hardware.h"
#include "shaper/packet_steering.h"
#include "shaper/session.h"
#include "tc/firewall_rules.h"
#include "tc/make_intf.h"
#include "tc/psched.h"
#include "tc/rate_resolution.h"

namespace quenby {
namespace {

void run_list(const std::string& commands) {
  if (!commands.empty()) run_or_exit(commands);
}

}  // namespace

HtbShaper::HtbShaper()
    : route_(open_socket(NETLINK_ROUTE)),
      netfilter_(open_socket(NETLINK_NETFILTER)),
      links_(open_link_cache(route_)) {
  set_psched_hz(nl_get_psched_hz());
}

void HtbShaper::create(GlobalSet set, TariffSet tariffs) {
  const GlobalSet given = set;
  const bool has_wan = !set.global.wan.empty();
  const std::int64_t speed = link_speed(set.global.wan);
  resolve_global_rates(set, tariffs, resolve_tariff_rates(set, tariffs, speed));

  const auto egress = device(set.global, false);
  const auto ingress = device(set.global, true);
  std::string commands;
  egress->fill_clean_fw_rules(commands);
  ingress->fill_clean_fw_rules(commands);
  if (has_wan && needs_drop_chain(set)) append_commands(commands, drop_chain_commands());
  run_list(commands);

  if (has_wan) {
    create_ipset();
    set_rps(given);
  }
  for (HtbIntf* const intf : {egress.get(), ingress.get()}) {
    intf->setup(set, given, !tariffs.empty(), speed);
    intf->create_leaves(set.global, tariffs);
  }
  if (has_wan) add_ipset_tariffs(tariffs);

  commands.clear();
  ingress->fill_fw_rules(set, commands);
  egress->fill_fw_rules(set, commands);
  run_list(commands);
}

void HtbShaper::clear(const GlobalSet& set) {
  const auto ingress = device(set.global, true);
  const auto egress = device(set.global, false);
  std::string commands = firewall_start_command();
  ingress->fill_clean_fw_rules(commands);
  egress->fill_clean_fw_rules(commands);
  append_commands(commands, firewall_end_commands());
  run_list(commands);

  if (!set.global.wan.empty()) {
    delete_ipset();
    clean_rps(set);
  }
  ingress->teardown(set);
  egress->teardown(set);
}

void HtbShaper::create_ipset() { create_address_set(netfilter_); }

void HtbShaper::delete_ipset() { flush_address_set(netfilter_); }

void HtbShaper::add_ipset_item(std::uint32_t address, std::uint64_t number) {
  add_address(netfilter_, address_set_entry(address, number));
}

void HtbShaper::del_ipset_item(std::uint32_t address) { delete_address(netfilter_, address); }

void HtbShaper::add_ipset_tariffs(const TariffSet& set) {
  for (const AddressSetEntry& entry : address_set_entries(set)) add_address(netfilter_, entry);
}

void HtbShaper::del_ipset_tariffs(const TariffSet& set) {
  for (const AddressSetEntry& entry : address_set_entries(set)) del_ipset_item(entry.address);
}

void HtbShaper::set_rps(const GlobalSet& set) {
  run_list(steering_command(board_name(), set.global.wan));
}

void HtbShaper::clean_rps(const GlobalSet& set) {
  run_list(steering_reset_command(board_name(), set.global.wan));
}

std::unique_ptr<HtbIntf> HtbShaper::device(const GlobalSettings& settings, bool ingress) {
  return make_intf(settings, ingress, route_, links_);
}

}  // namespace quenby
