#pragma once

#include <netlink/route/qdisc.h>

#include "model/bandwidth_settings.h"

namespace quenby {

/// Packets that a pfifo leaf holds.
int pfifo_limit(const BandwidthSettings& settings);

/// Puts the parameters into a qdisc object of kind "pfifo".
void set_pfifo(const BandwidthSettings& settings, rtnl_qdisc* qdisc);

}  // namespace quenby
