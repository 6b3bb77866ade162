#pragma once

#include <linux/netlink.h>
#include <linux/rtnetlink.h>

#include <functional>

struct nl_sock;

namespace quenby {

/// Asks for all objects of a kind (RTM_GETQDISC, ...) that `header` describes and hands over each
/// message of the answer. The kernel lists the qdiscs of all devices. 0, or a negative code of
/// libnl's: then the answer may have ended early.
int list_objects(nl_sock* sock, int type, tcmsg header,
                 const std::function<void(const nlmsghdr*)>& note);

/// The same for the one object that `header` names. The kernel tells all who listen to traffic
/// control of it, as of a change. -NLE_OBJ_NOTFOUND when there is none.
int get_object(nl_sock* sock, int type, tcmsg header,
               const std::function<void(const nlmsghdr*)>& note);

}  // namespace quenby
