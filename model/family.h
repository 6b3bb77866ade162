#pragma once

namespace quenby {

/// The two internet protocols, each with a firewall and an address set of its own.
enum class Family { ipv4, ipv6 };

}  // namespace quenby
