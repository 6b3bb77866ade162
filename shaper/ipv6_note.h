#pragma once

namespace quenby {

/// The note that IPv6 objects of ours may stand: what a run before has left has to go though the
/// settings no longer ask for IPv6, and a router that never did is to be asked for nothing. The
/// kernel forgets the objects at a reboot, and so does /run.
inline constexpr const char* kIpv6Note = "/run/quenby-ipv6";

bool ipv6_is_noted();
/// Comes before the first object. Failure ends the process.
void note_ipv6();
/// Comes after the last one has gone.
void forget_ipv6();

}  // namespace quenby
