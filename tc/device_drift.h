#pragma once

#include <vector>

#include "tc/device.h"
#include "tc/device_tree.h"
#include "tc/drift.h"
#include "tc/standing_device.h"

/// In what a device differs from what it should hold. Nothing here sends a request.
namespace quenby {

/// A device and what it should hold.
struct WantedDevice {
  Device device;
  /// The libnl link type of a device that the program makes itself; empty for any other.
  const char* kind = "";
  /// The trees of one direction or, on the IMQ device, of both.
  std::vector<const DeviceTree*> trees;
};

/// Everything but the redirection. A missing object stands for all that hangs on it. Where there is
/// no device to hold a tree and none can be made, that is all right.
std::vector<Drift> device_drift(const WantedDevice& wanted, const StandingDevice& standing);

/// The redirection of `feeder`'s incoming traffic to the device with the index `target` (0: it is
/// yet to be made). Redirections that are not wanted there are found too.
std::vector<Drift> redirection_drift(const Device& feeder, const MarkPath& path, int target,
                                     const IngressFilters& standing);

}  // namespace quenby
