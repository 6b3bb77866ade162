#pragma once

#include "tc/nl_types.h"

namespace quenby {

/// A socket connected to one netlink family (NETLINK_ROUTE, NETLINK_NETFILTER). Failure ends the
/// process.
SocketPtr open_socket(int protocol);

/// The links of every address family that the routing socket's namespace has. Failure ends the
/// process.
CachePtr open_link_cache(const SocketPtr& sock);

/// What one operation talks to the kernel over. Released in reverse order.
struct Session {
  SocketPtr route;
  SocketPtr netfilter;
  CachePtr links;
};

/// All of it, and the scheduler clock too.
Session open_session();

/// Reads the scheduler clock that bursts are computed from (`psched_hz`).
void read_psched_hz();

}  // namespace quenby
