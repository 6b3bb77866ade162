#pragma once

#include <memory>

#include "tc/htb_intf.h"

namespace quenby {

/// The device of one direction: the WAN device and the IFB device when the settings name a WAN
/// interface, the IMQ device otherwise.
std::unique_ptr<HtbIntf> make_intf(const GlobalSettings& g, Direction way, SocketPtr& sock,
                                   CachePtr& link_cache);

}  // namespace quenby
