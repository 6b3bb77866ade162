#include "tc/qdisc_query.h"

#include <linux/rtnetlink.h>
#include <netlink/attr.h>

namespace quenby {

MsgPtr qdisc_query(int ifindex, const char* kind, std::uint32_t handle, std::uint32_t parent) {
  MsgPtr msg(nlmsg_alloc_simple(RTM_GETQDISC, 0));
  if (msg == nullptr) return nullptr;
  tcmsg header{};
  header.tcm_ifindex = ifindex;
  header.tcm_handle = handle;
  header.tcm_parent = parent;
  if (nlmsg_append(msg.get(), &header, sizeof(header), NLMSG_ALIGNTO) < 0 ||
      nla_put_string(msg.get(), TCA_KIND, kind) < 0)
    return nullptr;
  return msg;
}

}  // namespace quenby
