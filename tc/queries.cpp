#include "tc/queries.h"

#include <linux/rtnetlink.h>
#include <netlink/attr.h>

#include <utility>

namespace quenby {
namespace {

MsgPtr query(int type, int ifindex, std::uint32_t handle, std::uint32_t parent) {
  MsgPtr msg(nlmsg_alloc_simple(type, 0));
  if (msg == nullptr) return nullptr;
  tcmsg header{};
  header.tcm_ifindex = ifindex;
  header.tcm_handle = handle;
  header.tcm_parent = parent;
  if (nlmsg_append(msg.get(), &header, sizeof(header), NLMSG_ALIGNTO) < 0) return nullptr;
  return msg;
}

}  // namespace

MsgPtr qdisc_query(int ifindex, const char* kind, std::uint32_t handle, std::uint32_t parent) {
  MsgPtr msg = query(RTM_GETQDISC, ifindex, handle, parent);
  if (msg == nullptr || nla_put_string(msg.get(), TCA_KIND, kind) < 0) return nullptr;
  return msg;
}

MsgPtr class_query(int ifindex, std::uint32_t handle, std::uint32_t parent) {
  return query(RTM_GETTCLASS, ifindex, handle, parent);
}

bool is_acknowledged(const Device& device, MsgPtr query) {
  return query != nullptr && nl_send_sync(device.sock, query.release()) >= 0;
}

}  // namespace quenby
