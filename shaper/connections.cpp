#include "shaper/connections.h"

#include <arpa/inet.h>
#include <linux/netfilter/nfnetlink.h>
#include <linux/netfilter/nfnetlink_conntrack.h>
#include <netlink/attr.h>
#include <netlink/handlers.h>
#include <netlink/netfilter/nfnl.h>

#include <algorithm>

#include "tc/handles.h"

namespace quenby {
namespace {

MsgPtr new_message(int command, int flags) {
  return MsgPtr(nfnlmsg_alloc_simple(NFNL_SUBSYS_CTNETLINK, static_cast<std::uint8_t>(command),
                                     flags, AF_INET, 0));
}

bool put_mark(const MsgPtr& msg, const MarkFilter& bits) {
  return nla_put_u32(msg.get(), CTA_MARK, htonl(bits.mark)) >= 0 &&
         nla_put_u32(msg.get(), CTA_MARK_MASK, htonl(bits.mask)) >= 0;
}

// The source address of a tuple; 0 when it is none of IPv4.
std::uint32_t source_of(nlattr* tuple) {
  if (tuple == nullptr) return 0;
  nlattr* const ip = nla_find(static_cast<nlattr*>(nla_data(tuple)), nla_len(tuple), CTA_TUPLE_IP);
  if (ip == nullptr) return 0;
  nlattr* const source = nla_find(static_cast<nlattr*>(nla_data(ip)), nla_len(ip), CTA_IP_V4_SRC);
  return source != nullptr ? nla_get_u32(source) : 0;
}

std::optional<Connection> read_connection(nlmsghdr* message) {
  const auto attribute = [message](int number) {
    return nlmsg_find_attr(message, sizeof(nfgenmsg), number);
  };
  nlattr* const tuple = attribute(CTA_TUPLE_ORIG);
  nlattr* const mark = attribute(CTA_MARK);
  if (tuple == nullptr || mark == nullptr) return std::nullopt;
  Connection connection;
  connection.original_tuple.assign(static_cast<const char*>(nla_data(tuple)),
                                   static_cast<std::size_t>(nla_len(tuple)));
  nlattr* const zone = attribute(CTA_ZONE);
  if (zone != nullptr) connection.zone = nla_get_u16(zone);
  connection.source = source_of(tuple);
  connection.reply_source = source_of(attribute(CTA_TUPLE_REPLY));
  connection.mark = ntohl(nla_get_u32(mark));
  return connection;
}

int collect(nl_msg* message, void* list) {
  const auto connection = read_connection(nlmsg_hdr(message));
  if (connection) static_cast<std::vector<Connection>*>(list)->push_back(*connection);
  return NL_OK;
}

struct FreeCallbacks {
  void operator()(nl_cb* callbacks) const { nl_cb_put(callbacks); }
};

// What the answer to a sent dump request lists.
std::vector<Connection> receive(const SocketPtr& netfilter) {
  std::vector<Connection> connections;
  const std::unique_ptr<nl_cb, FreeCallbacks> own(nl_socket_get_cb(netfilter.get()));
  const std::unique_ptr<nl_cb, FreeCallbacks> callbacks(nl_cb_clone(own.get()));
  if (callbacks == nullptr) return connections;
  nl_cb_set(callbacks.get(), NL_CB_VALID, NL_CB_CUSTOM, collect, &connections);
  nl_recvmsgs(netfilter.get(), callbacks.get());
  return connections;
}

void change_mark(const SocketPtr& netfilter, const Connection& connection, std::uint32_t mark) {
  const MsgPtr msg = new_message(IPCTNL_MSG_CT_NEW, NLM_F_REQUEST);
  if (msg == nullptr ||
      nla_put(msg.get(), CTA_TUPLE_ORIG | NLA_F_NESTED,
              static_cast<int>(connection.original_tuple.size()),
              connection.original_tuple.data()) < 0 ||
      (connection.zone && nla_put_u16(msg.get(), CTA_ZONE, *connection.zone) < 0) ||
      !put_mark(msg, {mark, kMarkMask}))
    return;
  if (nl_send_auto(netfilter.get(), msg.get()) >= 0) nl_wait_for_ack(netfilter.get());
}

}  // namespace

MarkFilter any_mark() { return {kMarkFlag, kMarkFlag}; }

MarkFilter one_of(const std::vector<std::uint32_t>& marks) {
  const bool same = !marks.empty() && std::all_of(marks.begin(), marks.end(),
                                                  [&](auto mark) { return mark == marks.front(); });
  return same ? MarkFilter{marks.front(), kMarkMask} : any_mark();
}

std::vector<Connection> list_connections(const SocketPtr& netfilter, const MarkFilter& filter) {
  const MsgPtr msg = new_message(IPCTNL_MSG_CT_GET, NLM_F_REQUEST | NLM_F_DUMP);
  if (msg == nullptr || !put_mark(msg, filter) || nl_send_auto(netfilter.get(), msg.get()) < 0)
    return {};
  std::vector<Connection> connections = receive(netfilter);
  // Old kernels do not know the filter and list everything.
  std::erase_if(connections, [&filter](const Connection& connection) {
    return (connection.mark & filter.mask) != filter.mark;
  });
  return connections;
}

void mend_marks(const SocketPtr& netfilter, const MarkTable& marks, const MarkFilter& filter) {
  for (const Connection& connection : list_connections(netfilter, filter)) {
    const std::uint32_t mark = marks.connection_mark(connection.source, connection.reply_source);
    if ((connection.mark & kMarkMask) != mark) change_mark(netfilter, connection, mark);
  }
}

}  // namespace quenby
