#pragma once

#include <netlink/route/qdisc.h>

#include "model/bandwidth_settings.h"

namespace quenby {

/// Packets that an sfq leaf holds; 127 is the most that the kernel's hash takes.
int sfq_limit(const BandwidthSettings& settings);

/// Puts the parameters into a qdisc object of kind "sfq".
void set_sfq(const BandwidthSettings& settings, rtnl_qdisc* qdisc);

}  // namespace quenby
