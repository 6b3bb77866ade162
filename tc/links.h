#pragma once

#include <string>
#include <vector>

#include "tc/device.h"
#include "tc/nl_types.h"

/// Network devices: what the link cache knows, and requests that make and delete virtual ones.
namespace quenby {

/// The devices that the program makes itself: the one that the WAN device's incoming traffic is
/// shaped on, and the one for both directions where no WAN device is named.
inline constexpr const char* kIfbName = "ifb_ingr";
inline constexpr const char* kImqName = "imq0";

/// The link of this name; null when the cache knows none, or is null itself.
LinkPtr find_link(nl_cache* links, const std::string& name);
/// The interface index of the link of this name; 0 when there is none.
int index_of(nl_cache* links, const std::string& name);
/// The interface indexes of all links of a cache.
std::vector<int> link_indexes(nl_cache* links);

/// Makes a virtual device of libnl's link type `kind`, up and with the queue that shaping wants,
/// and refills the cache.
void add_link(const Device& device, const char* kind, nl_cache* links);
/// Brings the device up.
void raise_link(const Device& device);
/// Deletes the device and refills the cache; nothing when it does not exist.
void delete_link(const Device& device, nl_cache* links);

}  // namespace quenby
