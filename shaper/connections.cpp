#include "shaper/connections.h"

#include <arpa/inet.h>
#include <linux/netfilter/nfnetlink.h>
#include <linux/netfilter/nfnetlink_conntrack.h>
#include <netlink/attr.h>
#include <netlink/handlers.h>
#include <netlink/netfilter/nfnl.h>

#include <algorithm>

#include "tc/attributes.h"
#include "tc/handles.h"

namespace quenby {
namespace {

// How the messages name the addresses of a family.
template <typename Address>
struct TupleWords;
template <>
struct TupleWords<std::uint32_t> {
  static constexpr std::uint8_t kFamily = AF_INET;
  static constexpr int kSource = CTA_IP_V4_SRC;
};
template <>
struct TupleWords<Ip6Address> {
  static constexpr std::uint8_t kFamily = AF_INET6;
  static constexpr int kSource = CTA_IP_V6_SRC;
};

template <typename Address>
MsgPtr new_message(int command, int flags) {
  return MsgPtr(nfnlmsg_alloc_simple(NFNL_SUBSYS_CTNETLINK, static_cast<std::uint8_t>(command),
                                     flags, TupleWords<Address>::kFamily, 0));
}

bool put_mark(const MsgPtr& msg, const MarkFilter& bits) {
  return nla_put_u32(msg.get(), CTA_MARK, htonl(bits.mark)) >= 0 &&
         nla_put_u32(msg.get(), CTA_MARK_MASK, htonl(bits.mask)) >= 0;
}

// The source address of a tuple; 0 when it is none of this family.
template <typename Address>
Address source_of(nlattr* tuple) {
  if (tuple == nullptr) return {};
  nlattr* const ip = nla_find(static_cast<nlattr*>(nla_data(tuple)), nla_len(tuple), CTA_TUPLE_IP);
  if (ip == nullptr) return {};
  return value<Address>(nla_find(static_cast<nlattr*>(nla_data(ip)), nla_len(ip),
                                 TupleWords<Address>::kSource))
      .value_or(Address{});
}

template <typename Address>
std::optional<ConnectionOf<Address>> read_connection(nlmsghdr* message) {
  const auto attribute = [message](int number) {
    return nlmsg_find_attr(message, sizeof(nfgenmsg), number);
  };
  nlattr* const tuple = attribute(CTA_TUPLE_ORIG);
  nlattr* const mark = attribute(CTA_MARK);
  if (tuple == nullptr || mark == nullptr) return std::nullopt;
  ConnectionOf<Address> connection;
  connection.original_tuple.assign(static_cast<const char*>(nla_data(tuple)),
                                   static_cast<std::size_t>(nla_len(tuple)));
  nlattr* const zone = attribute(CTA_ZONE);
  if (zone != nullptr) connection.zone = nla_get_u16(zone);
  connection.source = source_of<Address>(tuple);
  connection.reply_source = source_of<Address>(attribute(CTA_TUPLE_REPLY));
  connection.mark = ntohl(nla_get_u32(mark));
  return connection;
}

template <typename Address>
int collect(nl_msg* message, void* list) {
  const auto connection = read_connection<Address>(nlmsg_hdr(message));
  if (connection) static_cast<std::vector<ConnectionOf<Address>>*>(list)->push_back(*connection);
  return NL_OK;
}

// What the answer to a sent dump request lists.
template <typename Address>
std::vector<ConnectionOf<Address>> receive(const SocketPtr& netfilter) {
  std::vector<ConnectionOf<Address>> connections;
  const CallbackPtr own(nl_socket_get_cb(netfilter.get()));
  const CallbackPtr callbacks(nl_cb_clone(own.get()));
  if (callbacks == nullptr) return connections;
  nl_cb_set(callbacks.get(), NL_CB_VALID, NL_CB_CUSTOM, collect<Address>, &connections);
  nl_recvmsgs(netfilter.get(), callbacks.get());
  return connections;
}

template <typename Address>
void change_mark(const SocketPtr& netfilter, const ConnectionOf<Address>& connection,
                 std::uint32_t mark) {
  const MsgPtr msg = new_message<Address>(IPCTNL_MSG_CT_NEW, NLM_F_REQUEST);
  if (msg == nullptr ||
      nla_put(msg.get(), CTA_TUPLE_ORIG | NLA_F_NESTED,
              static_cast<int>(connection.original_tuple.size()),
              connection.original_tuple.data()) < 0 ||
      (connection.zone && nla_put_u16(msg.get(), CTA_ZONE, *connection.zone) < 0) ||
      !put_mark(msg, {mark, kMarkMask}))
    return;
  if (nl_send_auto(netfilter.get(), msg.get()) >= 0) nl_wait_for_ack(netfilter.get());
}

template <typename Address>
std::vector<ConnectionOf<Address>> list(const SocketPtr& netfilter, const MarkFilter& filter) {
  const MsgPtr msg = new_message<Address>(IPCTNL_MSG_CT_GET, NLM_F_REQUEST | NLM_F_DUMP);
  if (msg == nullptr || !put_mark(msg, filter) || nl_send_auto(netfilter.get(), msg.get()) < 0)
    return {};
  std::vector<ConnectionOf<Address>> connections = receive<Address>(netfilter);
  // Old kernels do not know the filter and list everything.
  std::erase_if(connections, [&filter](const ConnectionOf<Address>& connection) {
    return (connection.mark & filter.mask) != filter.mark;
  });
  return connections;
}

template <typename Address>
void mend(const SocketPtr& netfilter, const MarkTable& marks, const MarkFilter& filter) {
  for (const ConnectionOf<Address>& connection : list<Address>(netfilter, filter)) {
    const std::uint32_t mark = marks.connection_mark(connection.source, connection.reply_source);
    if ((connection.mark & kMarkMask) != mark) change_mark(netfilter, connection, mark);
  }
}

}  // namespace

MarkFilter any_mark() { return {kMarkFlag, kMarkFlag}; }

MarkFilter one_of(const std::vector<std::uint32_t>& marks) {
  const bool same = !marks.empty() && std::all_of(marks.begin(), marks.end(),
                                                  [&](auto mark) { return mark == marks.front(); });
  return same ? MarkFilter{marks.front(), kMarkMask} : any_mark();
}

std::vector<Connection> list_connections(const SocketPtr& netfilter, const MarkFilter& filter) {
  return list<std::uint32_t>(netfilter, filter);
}

std::vector<Ip6Connection> list_ip6_connections(const SocketPtr& netfilter,
                                                const MarkFilter& filter) {
  return list<Ip6Address>(netfilter, filter);
}

void mend_marks(const SocketPtr& netfilter, const MarkTable& marks, const MarkFilter& filter) {
  mend<std::uint32_t>(netfilter, marks, filter);
}

void mend_ip6_marks(const SocketPtr& netfilter, const MarkTable& marks, const MarkFilter& filter) {
  mend<Ip6Address>(netfilter, marks, filter);
}

}  // namespace quenby
