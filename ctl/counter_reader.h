#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "ctl/shaping.h"
#include "tc/class_counters.h"
#include "tc/nl_types.h"

namespace quenby {

/// The counters of a list of classes, in its order; nothing for a class that the kernel has not
/// got.
using Counters = std::vector<std::optional<ClassCounters>>;

/// Reads the counters of the same classes as often as it is asked. Every refusal of the kernel is
/// an error as in tc/device.h; a device that is missing is none.
class CounterReader {
 public:
  explicit CounterReader(const std::vector<ShapedClass>& classes);

  /// With one dump of classes per device. Drops are those that HTB knows.
  Counters read_classes() const;

  /// The same of a few, by their places in the list and in that order, with a request for each.
  Counters read_classes(const std::vector<std::size_t>& places) const;

  /// Raises the drops to what classes and leaves have dropped together, with a dump of all leaves.
  /// It takes the kernel the longer the more there are in the square: 60 ms for 30,000.
  void add_leaf_drops(Counters& counters) const;

  /// Both.
  Counters read() const;

  /// The same out of what somebody has read.
  Counters of(const CounterLists& lists) const;

 private:
  /// A device and the places of its classes in the list, by the minors of their handles.
  struct Listed {
    std::string name;
    std::vector<std::int32_t> places;

    std::optional<std::size_t> place_of(std::uint32_t handle) const;
  };

  /// A class of the list.
  struct Place {
    /// Which of the devices has it.
    std::size_t device = 0;
    std::uint32_t handle = 0;
  };

  std::size_t listed(const std::string& name);
  /// 0 for a device that there is not.
  static int ifindex_of(const Listed& device);
  /// The devices that there are, by their interface indexes.
  std::map<int, const Listed*> devices() const;
  static void place(const std::vector<ClassCounters>& read, const Listed& device,
                    Counters& counters);
  void place(const std::vector<LeafDrops>& read, Counters& counters) const;

  SocketPtr socket_;
  std::vector<Listed> devices_;
  std::vector<Place> places_;
};

}  // namespace quenby
