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

void CounterReader::read_classes(const Listed& device, int ifindex, Counters& counters) const {
  for (const ClassCounters& read : class_counters({device.name, socket_.get(), nullptr, ifindex})) {
    if (const auto place = device.place_of(read.handle)) counters[*place] = read;
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
  for (const auto& [ifindex, device] : devices()) read_classes(*device, ifindex, counters);
  return counters;
}

void CounterReader::add_leaf_drops(Counters& counters) const {
  const std::map<int, const Listed*> known = devices();
  if (known.empty()) return;
  for (const LeafDrops& leaf : leaf_drops(socket_.get())) {
    const auto device = known.find(leaf.ifindex);
    if (device == known.end()) continue;
    const auto place = device->second->place_of(leaf.parent);
    // What a leaf refuses its class has counted too.
    if (place && counters[*place])
      counters[*place]->drops = std::max(counters[*place]->drops, leaf.drops);
  }
}

Counters CounterReader::read() const {
  Counters counters = read_classes();
  add_leaf_drops(counters);
  return counters;
}

}  // namespace quenby
