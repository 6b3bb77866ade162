#pragma once

#include <netlink/route/qdisc.h>

#include <cstdint>

#include "model/bandwidth_settings.h"

namespace quenby {

/// Parameters of an fq_codel qdisc: the queue in packets and the bytes that a flow may send in one
/// turn (0: the kernel's own choice).
struct FqCodel {
  int limit = 0;
  std::uint32_t quantum = 0;
};

/// The parameters for a speed in kbit/s: a short queue for slow tariffs, a long one for gigabit
/// rates, and below 100 Mbit/s a small quantum that favours small packets.
FqCodel fq_codel_values(std::int64_t kbps);

/// Puts the parameters into a qdisc object of kind "fq_codel"; ECN is always off.
void set_fq_codel(const BandwidthSettings& settings, rtnl_qdisc* qdisc);

}  // namespace quenby
