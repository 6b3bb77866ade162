#include "shaper/address_set.h"

#include <arpa/inet.h>
#include <linux/netfilter.h>
#include <linux/netfilter/ipset/ip_set.h>
#include <linux/netfilter/nfnetlink.h>
#include <netlink/attr.h>
#include <netlink/netfilter/nfnl.h>

#include <endian.h>
#include <string>

#include "cli/error.h"
#include "tc/firewall_rules.h"
#include "tc/handles.h"
#include "tc/nl_error.h"

namespace quenby {
namespace {

constexpr const char* kSetType = "hash:ip";
// The first protocol revision of hash:ip whose entries carry packet-mark data.
constexpr std::uint8_t kSetRevision = 4;
constexpr std::uint8_t kProtocol = 6;

constexpr int kData = IPSET_ATTR_DATA | NLA_F_NESTED;
constexpr int kIp = IPSET_ATTR_IP | NLA_F_NESTED;

MsgPtr new_message(int command) {
  MsgPtr msg(nfnlmsg_alloc_simple(NFNL_SUBSYS_IPSET, static_cast<std::uint8_t>(command),
                                  NLM_F_REQUEST, AF_INET, 0));
  if (msg == nullptr) _error("Msg allocation failed");
  check_nl_result("set ipset protocol", nla_put_u8(msg.get(), IPSET_ATTR_PROTOCOL, kProtocol));
  check_nl_result("set ipset name", nla_put_string(msg.get(), IPSET_ATTR_SETNAME, kAddressSet));
  return msg;
}

nlattr* begin_nest(const MsgPtr& msg, int attribute, const char* failure) {
  nlattr* const nest = nla_nest_start(msg.get(), attribute);
  if (nest == nullptr) _error(failure);
  return nest;
}

void put_address(const MsgPtr& msg, std::uint32_t address) {
  nlattr* const ip = begin_nest(msg, kIp, "nested ip allocation failed");
  check_nl_result("set ipset ip",
                  nla_put_u32(msg.get(), IPSET_ATTR_IPADDR_IPV4 | NLA_F_NET_BYTEORDER, address));
  nla_nest_end(msg.get(), ip);
}

void put_line_number(const MsgPtr& msg) {
  check_nl_result("set ipset lineno",
                  nla_put_u32(msg.get(), IPSET_ATTR_LINENO | NLA_F_NET_BYTEORDER, 0));
}

void put_mark(const MsgPtr& msg, const AddressSetEntry& entry) {
  const std::uint64_t mark = static_cast<std::uint64_t>(entry.mark) << 32 | entry.mask;
  check_nl_result("set ipset mark",
                  nla_put_u64(msg.get(), IPSET_ATTR_SKBMARK | NLA_F_NET_BYTEORDER, htobe64(mark)));
}

// An entry without a mark.
void put_entry(const MsgPtr& msg, std::uint32_t address) {
  nlattr* const data = begin_nest(msg, kData, "nested allocation failed");
  put_address(msg, address);
  put_line_number(msg);
  nla_nest_end(msg.get(), data);
}

// `subject` names the operation in both messages.
void send(const SocketPtr& sock, const MsgPtr& msg, const std::string& subject,
          const std::string& object) {
  check_nl_result("send " + subject + " " + object, nl_send_auto(sock.get(), msg.get()));
  check_nl_result(subject + " " + object + " ack", nl_wait_for_ack(sock.get()));
}

}  // namespace

AddressSetEntry address_set_entry(std::uint32_t address, std::uint64_t number) {
  return {address, class_mark(number), kMarkMask};
}

std::vector<AddressSetEntry> address_set_entries(const TariffSet& set) {
  std::vector<AddressSetEntry> entries;
  for (const TariffSettings& tariff : set.tariffs()) {
    const auto number = static_cast<std::uint64_t>(static_cast<std::int64_t>(tariff.id));
    for (const std::uint32_t address : tariff.addresses)
      entries.push_back(address_set_entry(address, number));
  }
  return entries;
}

void create_address_set(const SocketPtr& sock) {
  const MsgPtr msg = new_message(IPSET_CMD_CREATE);
  check_nl_result("set ipset type", nla_put_string(msg.get(), IPSET_ATTR_TYPENAME, kSetType));
  check_nl_result("set ipset revision", nla_put_u8(msg.get(), IPSET_ATTR_REVISION, kSetRevision));
  check_nl_result("set ipset family", nla_put_u8(msg.get(), IPSET_ATTR_FAMILY, NFPROTO_IPV4));
  nlattr* const data = begin_nest(msg, kData, "nested allocation failed");
  check_nl_result("set ipset cadt flags",
                  nla_put_u32(msg.get(), IPSET_ATTR_CADT_FLAGS | NLA_F_NET_BYTEORDER,
                              htonl(IPSET_FLAG_WITH_SKBINFO)));
  nla_nest_end(msg.get(), data);
  send(sock, msg, "create", "ipset");
}

void flush_address_set(const SocketPtr& sock) {
  send(sock, new_message(IPSET_CMD_FLUSH), "delete", "ipset");
}

void add_address(const SocketPtr& sock, const AddressSetEntry& entry) {
  const MsgPtr msg = new_message(IPSET_CMD_ADD);
  nlattr* const data = begin_nest(msg, kData, "nested allocation failed");
  put_address(msg, entry.address);
  put_mark(msg, entry);
  put_line_number(msg);
  nla_nest_end(msg.get(), data);
  send(sock, msg, "add", "ipset ip");
}

bool has_address(const SocketPtr& sock, std::uint32_t address) {
  const MsgPtr msg = new_message(IPSET_CMD_TEST);
  put_entry(msg, address);
  return nl_send_auto(sock.get(), msg.get()) >= 0 && nl_wait_for_ack(sock.get()) >= 0;
}

void delete_address(const SocketPtr& sock, std::uint32_t address) {
  const MsgPtr msg = new_message(IPSET_CMD_DEL);
  put_entry(msg, address);
  send(sock, msg, "del", "ipset ip");
}

}  // namespace quenby
