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
    : socket_(open_socket(NETLINK_ROUTE)) {
  for (const ShapedClass& shaped : classes) {
    const Place place{listed(shaped.planned.device), shaped.planned.htb.handle};
    devices_[place.device].places[minor_of(place.handle)] =
        static_cast<std::int32_t>(places_.size());
    places_.push_back(place);
  }
}

std::size_t CounterReader::listed(const std::string& name) {
  const auto found = std::find_if(devices_.begin(), devices_.end(),
                                  [&name](const Listed& device) { return device.name == name; });
  if (found != devices_.end()) return static_cast<std::size_t>(found - devices_.begin());
  devices_.push_back({name, std::vector<std::int32_t>(kMinors, kNoPlace)});
  return devices_.size() - 1;
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

int CounterReader::ifindex_of(const Listed& device) {
  return static_cast<int>(if_nametoindex(device.name.c_str()));
}

std::map<int, const CounterReader::Listed*> CounterReader::devices() const {
  std::map<int, const Listed*> found;
  for (const Listed& device : devices_) {
    const int ifindex = ifindex_of(device);
    if (ifindex != 0) found[ifindex] = &device;
  }
  return found;
}

Counters CounterReader::read_classes(const std::vector<std::size_t>& places) const {
  std::vector<int> ifindexes;
  for (const Listed& device : devices_) ifindexes.push_back(ifindex_of(device));
  Counters counters;
  for (const std::size_t at : places) {
    const auto& [device, handle] = places_[at];
    const int ifindex = ifindexes[device];
    const Device asked{devices_[device].name, socket_.get(), nullptr, ifindex};
    counters.push_back(ifindex == 0 ? std::nullopt : class_counters(asked, handle));
  }
  return counters;
}

Counters CounterReader::read_classes() const {
  Counters counters(places_.size());
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
  Counters counters(places_.size());
  for (const auto& [ifindex, device] : devices()) {
    const auto read = lists.classes.find(ifindex);
    if (read != lists.classes.end()) place(read->second, *device, counters);
  }
  place(lists.leaves, counters);
  return counters;
}

}  // namespace quenby
