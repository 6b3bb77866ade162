#include "shaper/desired_state.h"

#include <arpa/inet.h>

#include <sstream>

#include "shaper/packet_steering.h"
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

void add_mark_trees(const ResolvedSettings& settings, bool has_wan, DesiredState& state) {
  state.upload_device = settings.line.global.wan;
  state.download_device = kIfbName;
  if (has_wan) {
    state.upload = device_tree(mark_side(Direction::upload), settings);
    state.download = device_tree(mark_side(Direction::download), settings);
  }
  state.addresses = address_set_entries(settings.tariffs);
  const std::uint32_t default_mark = class_mark(kDefaultTariffClass);
  state.firewall = download_rules(settings.line, default_mark, has_wan);
  if (has_wan) append_commands(state.firewall, upload_rules(settings.line, default_mark));
}

void write_commands(std::ostream& out, const std::string& subject, const std::string& list) {
  std::istringstream commands(list);
  for (std::string command; std::getline(commands, command, ';');)
    out << subject << ' ' << command << '\n';
}

void write_entry(std::ostream& out, const AddressSetEntry& entry) {
  char text[INET_ADDRSTRLEN];
  const in_addr address{entry.address};
  out << "set " << inet_ntop(AF_INET, &address, text, sizeof(text)) << " mark 0x" << hex(entry.mark)
      << "/0x" << hex(entry.mask) << '\n';
}

}  // namespace

DesiredState desired_state(const ResolvedSettings& settings, const RouterFacts& facts) {
  DesiredState state;
  if (settings.line.global.wan.empty()) {
    add_imq_trees(settings, state);
  } else {
    add_mark_trees(settings, facts.has_wan, state);
    state.steering = steering_command(facts.board, settings.line.global.wan);
  }
  return state;
}

std::string to_text(const DesiredState& state) {
  std::ostringstream out;
  write_commands(out, "steering", state.steering);
  write_tree(out, state.upload_device, state.upload);
  write_tree(out, state.download_device, state.download);
  for (const AddressSetEntry& entry : state.addresses) write_entry(out, entry);
  write_commands(out, "firewall", state.firewall);
  return out.str();
}

}  // namespace quenby
