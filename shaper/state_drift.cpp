#include "shaper/state_drift.h"

#include <net/if.h>

#include <iterator>
#include <map>
#include <utility>

#include "shaper/firewall_state.h"
#include "shaper/ipv6_note.h"
#include "shaper/packet_steering.h"
#include "tc/address_text.h"
#include "tc/device_drift.h"
#include "tc/firewall_rules.h"
#include "tc/handles.h"
#include "tc/links.h"

namespace quenby {
namespace {

// The devices of a session, read once each.
class Devices {
 public:
  Devices(const Session& session, CounterLists* counters)
      : session_(session),
        counters_(counters),
        qdiscs_(list_qdiscs(session.route.get(), counters)) {}

  Device find(const std::string& name) const {
    const LinkPtr link = find_link(session_.links.get(), name);
    return {name, session_.route.get(), nullptr,
            link == nullptr ? 0 : rtnl_link_get_ifindex(link.get())};
  }

  StandingDevice read(const Device& device) {
    if (!device.exists()) return {};
    const LinkPtr link = find_link(session_.links.get(), device.name);
    const bool up = (rtnl_link_get_flags(link.get()) & IFF_UP) != 0;
    return read_device(session_.route.get(), device.ifindex, up, qdiscs_, counters_);
  }

  // Every other device that has, or had, a redirection of ours.
  std::vector<Device> other_feeders(const std::string& wan, int target) const {
    std::vector<Device> feeders;
    for (const int ifindex : link_indexes(session_.links.get())) {
      char name[IF_NAMESIZE];
      if (if_indextoname(static_cast<unsigned>(ifindex), name) == nullptr || name == wan) continue;
      const IngressFilters filters = ingress_filters(session_.route.get(), ifindex);
      if (filters.handles_for(target).empty() && filters.ip6_for(target).empty()) continue;
      feeders.push_back({name, session_.route.get(), nullptr, ifindex});
    }
    return feeders;
  }

 private:
  const Session& session_;
  CounterLists* counters_;
  QdiscsByDevice qdiscs_;
};

void append(std::vector<Drift>& list, std::vector<Drift> more) {
  list.insert(list.end(), std::make_move_iterator(more.begin()),
              std::make_move_iterator(more.end()));
}

// All of a device but its redirection, which comes back. The rest, which is much where there are
// many classes, is gone before another device is read.
IngressFilters compare_tree(const WantedDevice& wanted, Devices& devices,
                            std::vector<Drift>& found) {
  StandingDevice standing = devices.read(wanted.device);
  append(found, device_drift(wanted, standing));
  return std::move(standing.ingress);
}

void compare_mark_devices(Devices& devices, const WantedState& wanted, std::vector<Drift>& found) {
  const DesiredState& state = wanted.state;
  const Device wan = devices.find(wanted.wan);
  const Device ifb = devices.find(kIfbName);
  const IngressFilters ingress = compare_tree({wan, "", {&state.upload}}, devices, found);
  compare_tree({ifb, "ifb", {&state.download}}, devices, found);
  append(found, redirection_drift(wan, state.download.path, ifb.ifindex, ingress));
}

// What a line that the settings do not name any more was left with.
void compare_former_devices(Devices& devices, const std::string& wan, std::vector<Drift>& found) {
  const Device ifb = devices.find(kIfbName);
  const DeviceTree nothing;
  for (const Device& feeder : devices.other_feeders(wan, ifb.ifindex)) {
    const IngressFilters ingress = compare_tree({feeder, "", {&nothing}}, devices, found);
    append(found, redirection_drift(feeder, {}, ifb.ifindex, ingress));
  }
}

void compare_imq(Devices& devices, const WantedState& wanted, std::vector<Drift>& found) {
  const Device imq = devices.find(kImqName);
  const DesiredState& state = wanted.state;
  compare_tree({imq, "imq", {&state.upload, &state.download}}, devices, found);
}

void compare_removed(Devices& devices, std::vector<Drift>& found) {
  const Device ifb = devices.find(kIfbName);
  if (!ifb.exists()) return;
  found.push_back({DriftKind::unwanted, kIfbName, "", "", Mendings{DropDevice{}}, false});
}

std::vector<Drift> compare_devices(const Session& session, const WantedState& wanted,
                                   CounterLists* counters) {
  Devices devices(session, counters);
  std::vector<Drift> found;
  compare_former_devices(devices, wanted.wan, found);
  if (wanted.wan.empty()) {
    compare_imq(devices, wanted, found);
  } else {
    compare_mark_devices(devices, wanted, found);
  }
  if (!wanted.shaped || wanted.wan.empty()) compare_removed(devices, found);
  return found;
}

std::vector<Drift> compare_steering(const WantedState& wanted) {
  const std::string processors = steered_processors(wanted.state.steering);
  const std::string standing = processors.empty() ? "" : standing_processors(wanted.wan);
  if (processors == standing) return {};
  return {{DriftKind::different, "steering", wanted.wan,
           (standing.empty() ? "none" : standing) + ", not " + processors,
           Mendings{RunCommand{wanted.state.steering}}, false}};
}

template <typename Key>
std::string mark_text(const SetEntry<Key>& entry) {
  return "0x" + hex(entry.mark) + "/0x" + hex(entry.mask);
}

std::string key_text(std::uint32_t address) { return "address " + address_text(address); }
std::string key_text(const Ip6Prefix& prefix) { return "prefix " + to_text(prefix); }

const char* name_of_set(const SetDrift& /*kind*/) { return kAddressSet; }
const char* name_of_set(const PrefixSetDrift& /*kind*/) { return kAddressSet6; }

template <typename Key>
Drift entry_drift(DriftKind kind, const Key& address, std::string detail = "") {
  return {kind, "set", key_text(address), std::move(detail), MendedOtherwise{}, false};
}

// One entry for each address, the last that it has in the list.
template <typename Key>
std::map<Key, SetEntry<Key>> by_address(const std::vector<SetEntry<Key>>& list) {
  std::map<Key, SetEntry<Key>> entries;
  for (const SetEntry<Key>& entry : list) entries[entry.address] = entry;
  return entries;
}

// Takes what stands out of `entries`.
template <typename Key>
void compare_standing(const ListedSet<Key>& standing, std::map<Key, SetEntry<Key>>& entries,
                      SetDriftOf<Key>& drift) {
  for (const SetEntry<Key>& found : standing.entries) {
    const auto entry = entries.find(found.address);
    if (entry == entries.end()) {
      drift.found.push_back(entry_drift(DriftKind::unwanted, found.address));
      drift.drop.push_back(found.address);
      continue;
    }
    if (entry->second != found) {
      drift.found.push_back(
          entry_drift(DriftKind::different, found.address,
                      "mark " + mark_text(found) + ", not " + mark_text(entry->second)));
      drift.put.push_back(entry->second);
    }
    entries.erase(entry);
  }
}

template <typename Key>
SetDriftOf<Key> drift_of_set(const std::vector<SetEntry<Key>>& wanted, bool needed,
                             const std::optional<ListedSet<Key>>& standing) {
  SetDriftOf<Key> drift;
  std::map<Key, SetEntry<Key>> entries = by_address(wanted);
  if (!standing) {
    if (!needed) return drift;
    drift.make = true;
    drift.found.push_back(
        {DriftKind::missing, "set", name_of_set(drift), "", MendedOtherwise{}, false});
    for (const auto& [address, entry] : entries) drift.put.push_back(entry);
    return drift;
  }
  if (needed && !standing->is_of_our_type()) {
    const char* const name = name_of_set(drift);
    drift.found.push_back(
        {DriftKind::different, "set", name, "type " + standing->type, OtherSetType{name}, false});
    return drift;
  }
  compare_standing(*standing, entries, drift);
  for (const SetEntry<Key>& entry : wanted) {
    const auto missing = entries.find(entry.address);
    if (missing == entries.end()) continue;
    drift.found.push_back(entry_drift(DriftKind::missing, entry.address));
    drift.put.push_back(missing->second);
    entries.erase(missing);
  }
  return drift;
}

// Where IPv6 is not shaped and nothing tells that it was, nobody is asked about it.
void find_ip6_drift(const Session& session, const WantedState& wanted, StateDrift& drift,
                    std::optional<StandingPrefixSet>& standing) {
  const bool needed = wanted.shaped && wanted.state.ipv6;
  const bool noted = ipv6_is_noted();
  if (!needed && !noted) return;
  if (!noted)
    drift.note.push_back({DriftKind::missing, "note", kIpv6Note, "", MendedOtherwise{}, false});
  standing = list_prefix_set(session.netfilter);
  drift.prefix_set = prefix_set_drift(wanted.state.prefixes, needed, standing);
  const std::string commands =
      needed ? wanted.state.ip6_firewall : tracking_as_before(Family::ipv6);
  append(drift.commands,
         firewall_drift(wanted_firewall(commands), read_firewall(Family::ipv6), Family::ipv6));
}

}  // namespace

std::vector<Drift> StateDrift::all() const {
  std::vector<Drift> list = note;
  list.insert(list.end(), devices.begin(), devices.end());
  list.insert(list.end(), set.found.begin(), set.found.end());
  list.insert(list.end(), prefix_set.found.begin(), prefix_set.found.end());
  list.insert(list.end(), commands.begin(), commands.end());
  return list;
}

SetDrift set_drift(const std::vector<AddressSetEntry>& wanted, bool needed,
                   const std::optional<StandingSet>& standing) {
  return drift_of_set(wanted, needed, standing);
}

PrefixSetDrift prefix_set_drift(const std::vector<PrefixSetEntry>& wanted, bool needed,
                                const std::optional<StandingPrefixSet>& standing) {
  return drift_of_set(wanted, needed, standing);
}

StateDrift find_drift(const Session& session, const WantedState& wanted, KernelReading* reading) {
  KernelReading unasked;
  KernelReading& read = reading == nullptr ? unasked : *reading;
  StateDrift drift;
  drift.devices =
      compare_devices(session, wanted, reading == nullptr ? nullptr : &reading->counters);
  read.set = list_address_set(session.netfilter);
  drift.set = set_drift(wanted.state.addresses, wanted.shaped && !wanted.wan.empty(), read.set);
  const std::string commands = wanted.shaped ? wanted.state.firewall : tracking_as_before();
  drift.commands = firewall_drift(wanted_firewall(commands), read_firewall());
  find_ip6_drift(session, wanted, drift, read.prefix_set);
  append(drift.commands, compare_steering(wanted));
  return drift;
}

}  // namespace quenby
