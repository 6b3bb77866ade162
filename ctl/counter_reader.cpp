#include "ctl/counter_reader.h"

#include <net/if.h>

#include <algorithm>

#include "shaper/session.h"

namespace quenby {
namespace {

constexpr std::size_t kMinors = 0x10000;
constexpr std::int32_t kNoPlace = -1;

std::size_t minor_of(std::uint32_t handle) { return handle & (kMinors - 1); }

}  // namespace

std::optional<std::size_t> CounterReader::Listed::place_of(std::uint32_t handle) const {
  const std::int32_t place = places[minor_of(handle)];
  if (place == kNoPlace) return std::nullopt;
  return static_cast<std::size_t>(place);
}

CounterReader::CounterReader(const std::vector<ShapedClass>& classes)
    : socket_(open_socket(NETLINK_ROUTE)), size_(classes.size()) {
  std::int32_t place = 0;
  for (const ShapedClass& shaped : classes)
    listed(shaped.planned.device).places[minor_of(shaped.planned.htb.handle)] = place++;
}

CounterReader::Listed& CounterReader::listed(const std::string& name) {
  const auto found = std::find_if(devices_.begin(), devices_.end(),
                                  [&name](const Listed& device) { return device.name == name; });
  if (found != devices_.end()) return *found;
  devices_.push_back({name, std::vector<std::int32_t>(kMinors, kNoPlace)});
  return devices_.back();
}

void CounterReader::place(const std::vector<ClassCounters>& read, const Listed& device,
                          Counters& counters) {
  for (const ClassCounters& one : read) {
    if (const auto place = device.place_of(one.handle)) counters[*place] = one;
  }
}

void CounterReader::place(const std::vector<LeafDrops>& read, Counters& counters) const {
  const std::map<int, const Listed*> known = devices();
  for (const LeafDrops& leaf : read) {
    const auto device = known.find(leaf.ifindex);
    if (device == known.end()) continue;
    const auto place = device->second->place_of(leaf.parent);
    // What a leaf refuses its class has counted too.
    if (place && counters[*place])
      counters[*place]->drops = std::max(counters[*place]->drops, leaf.drops);
  }
}

std::map<int, const CounterReader::Listed*> CounterReader::devices() const {
  std::map<int, const Listed*> found;
  for (const Listed& device : devices_) {
    const auto ifindex = static_cast<int>(if_nametoindex(device.name.c_str()));
    if (ifindex != 0) found[ifindex] = &device;
  }
  return found;
}

Counters CounterReader::read_classes() const {
  Counters counters(size_);
  for (const auto& [ifindex, device] : devices())
    place(class_counters({device->name, socket_.get(), nullptr, ifindex}), *device, counters);
  return counters;
}

void CounterReader::add_leaf_drops(Counters& counters) const {
  if (!devices().empty()) place(leaf_drops(socket_.get()), counters);
}

Counters CounterReader::read() const {
  Counters counters = read_classes();
  add_leaf_drops(counters);
  return counters;
}

Counters CounterReader::of(const CounterLists& lists) const {
  Counters counters(size_);
  for (const auto& [ifindex, device] : devices()) {
    const auto read = lists.classes.find(ifindex);
    if (read != lists.classes.end()) place(read->second, *device, counters);
  }
  place(lists.leaves, counters);
  return counters;
}

}  // namespace quenby
