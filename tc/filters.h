#pragma once

#include <linux/if_ether.h>

#include <cstdint>

#include "tc/device.h"
#include "tc/nl_types.h"
#include "tc/u32_filter.h"

/// Requests about the classifiers of a device, of IPv4 unless a protocol says otherwise: an ETH_P_
/// number, host order.
namespace quenby {

/// The priority of every IPv4 classifier of ours under an HTB root, and the one at which older
/// versions put a classifier by mark.
inline constexpr unsigned kClassifierPrio = 1;
inline constexpr unsigned kFormerPrio = 2;
/// Those of the IPv6 classifiers: two protocols cannot have one, nor two kinds of classifiers.
inline constexpr unsigned kDiscoveryPrio = 3;
inline constexpr unsigned kIp6ClassifierPrio = 4;

/// Adds a u32 hash table under the HTB root; with `tolerate` one that exists already is no failure.
void add_u32_table(const Device& device, const U32Table& table, unsigned prio, bool tolerate);
/// Adds a u32 filter under the HTB root. Mainline kernels refuse a handle whose bucket and node are
/// both 0; there the kernel chooses the node.
void add_u32_filter(const Device& device, const U32Filter& filter, unsigned prio);
/// Deletes the u32 filter of this handle under the qdisc `parent`; one that is gone already is no
/// failure.
void delete_u32_filter(const Device& device, std::uint32_t parent, std::uint32_t handle,
                       unsigned prio);

/// Sends every packet under the HTB root to the class that its mark names: an fw filter with our
/// mask or, on kernels that refuse that, a classic-BPF one of the same meaning.
void add_mark_filter(const Device& device, unsigned prio, std::uint16_t protocol = ETH_P_IP);

/// What neighbour and router discovery looks like: ICMPv6 with the hop limit 255, which nothing
/// that was forwarded has. It goes past all classes, as the link does not work without it.
U32Filter discovery_filter();
/// Adds it under the HTB root.
void add_discovery_filter(const Device& device);

/// Deletes the classifiers of priority `prio` and, unless null, of `kind` under the qdisc `parent`.
/// Nothing is asked when the device does not exist.
void delete_filters(const Device& device, std::uint32_t parent, unsigned prio, const char* kind,
                    std::uint16_t protocol = ETH_P_IP);

/// Deletes one classifier of any kind and protocol (an ETH_P_ number, host order); handle 0 stands
/// for all of the priority. What is gone already is no failure.
void delete_filter(const Device& device, const std::string& kind, std::uint32_t parent,
                   std::uint32_t handle, unsigned prio, unsigned protocol);

/// The classifiers under the HTB root; failure ends the process.
CachePtr list_filters(const Device& device);

}  // namespace quenby
