#include "shaper/desired_state.h"

#include <sstream>

#include "shaper/packet_steering.h"
#include "tc/address_text.h"
#include "tc/firewall_rules.h"
#include "tc/handles.h"
#include "tc/links.h"
#include "tc/tree_text.h"

namespace quenby {
namespace {

void add_imq_trees(const ResolvedSettings& settings, DesiredState& state) {
  state.upload_device = state.download_device = kImqName;
  state.upload = device_tree(imq_side(Direction::upload), settings);
  state.download = device_tree(imq_side(Direction::download), settings);
  state.firewall = imq_upload_rules();
}

std::string mark_rules(const ResolvedSettings& settings, bool has_wan, Family family) {
  const std::uint32_t default_mark = class_mark(kDefaultTariffClass);
  std::string rules = download_rules(settings.download.line, default_mark, has_wan, family);
  if (has_wan) append_commands(rules, upload_rules(settings.upload.line, default_mark, family));
  return rules;
}

void add_mark_trees(const ResolvedSettings& settings, bool has_wan, DesiredState& state) {
  state.upload_device = settings.configured.global.wan;
  state.download_device = kIfbName;
  if (has_wan) {
    state.upload = device_tree(mark_side(Direction::upload), settings);
    state.download = device_tree(mark_side(Direction::download), settings);
  }
  state.addresses = address_set_entries(settings.tariffs);
  state.firewall = mark_rules(settings, has_wan, Family::ipv4);
  state.ipv6 = settings.configured.global.shapes_ipv6();
  if (!state.ipv6) return;
  state.prefixes = prefix_set_entries(settings.tariffs);
  state.ip6_firewall = mark_rules(settings, has_wan, Family::ipv6);
}

void write_commands(std::ostream& out, const std::string& subject, const std::string& list) {
  std::istringstream commands(list);
  for (std::string command; std::getline(commands, command, ';');)
    out << subject << ' ' << command << '\n';
}

template <typename Key>
void write_entry(std::ostream& out, const std::string& address, const SetEntry<Key>& entry) {
  out << "set " << address << " mark 0x" << hex(entry.mark) << "/0x" << hex(entry.mask) << '\n';
}

}  // namespace

DesiredState desired_state(const ResolvedSettings& settings, const RouterFacts& facts) {
  DesiredState state;
  const std::string& wan = settings.configured.global.wan;
  if (wan.empty()) {
    add_imq_trees(settings, state);
  } else {
    add_mark_trees(settings, facts.has_wan, state);
    state.steering = steering_command(facts.board, wan);
  }
  return state;
}

std::string to_text(const DesiredState& state) {
  std::ostringstream out;
  write_commands(out, "steering", state.steering);
  write_tree(out, state.upload_device, state.upload);
  write_tree(out, state.download_device, state.download);
  for (const AddressSetEntry& entry : state.addresses)
    write_entry(out, address_text(entry.address), entry);
  for (const PrefixSetEntry& entry : state.prefixes)
    write_entry(out, to_text(entry.address), entry);
  write_commands(out, "firewall", state.firewall);
  write_commands(out, "firewall", state.ip6_firewall);
  return out.str();
}

}  // namespace quenby
