#include "shaper/address_set.h"

#include <arpa/inet.h>
#include <linux/netfilter.h>
#include <linux/netfilter/ipset/ip_set.h>
#include <linux/netfilter/nfnetlink.h>
#include <netlink/attr.h>
#include <netlink/errno.h>
#include <netlink/netfilter/nfnl.h>

#include <algorithm>
#include <endian.h>
#include <string>

#include "cli/error.h"
#include "tc/attributes.h"
#include "tc/firewall_rules.h"
#include "tc/handles.h"
#include "tc/nl_error.h"

namespace quenby {
namespace {

// The kinds of sets, and the first protocol revision of each whose entries carry packet-mark data.
struct SetKind {
  const char* type;
  std::uint8_t revision;
  std::uint8_t family;
};

constexpr SetKind kAddresses = {"hash:ip", 4, NFPROTO_IPV4};
constexpr SetKind kPrefixes = {"hash:net", 6, NFPROTO_IPV6};
constexpr std::uint8_t kProtocol = 6;

constexpr int kData = IPSET_ATTR_DATA | NLA_F_NESTED;
constexpr int kIp = IPSET_ATTR_IP | NLA_F_NESTED;

const SetKind& kind_of(Family family) { return family == Family::ipv6 ? kPrefixes : kAddresses; }

Family family_of(std::uint32_t /*address*/) { return Family::ipv4; }
Family family_of(const Ip6Prefix& /*prefix*/) { return Family::ipv6; }

MsgPtr new_message(int command, Family family) {
  MsgPtr msg(nfnlmsg_alloc_simple(NFNL_SUBSYS_IPSET, static_cast<std::uint8_t>(command),
                                  NLM_F_REQUEST, kind_of(family).family, 0));
  if (msg == nullptr) _error("Msg allocation failed");
  check_nl_result("set ipset protocol", nla_put_u8(msg.get(), IPSET_ATTR_PROTOCOL, kProtocol));
  check_nl_result("set ipset name",
                  nla_put_string(msg.get(), IPSET_ATTR_SETNAME, address_set_name(family)));
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

void put_address(const MsgPtr& msg, const Ip6Prefix& prefix) {
  nlattr* const ip = begin_nest(msg, kIp, "nested ip allocation failed");
  check_nl_result("set ipset ip", nla_put(msg.get(), IPSET_ATTR_IPADDR_IPV6 | NLA_F_NET_BYTEORDER,
                                          sizeof(prefix.address), prefix.address.data()));
  nla_nest_end(msg.get(), ip);
  check_nl_result("set ipset cidr", nla_put_u8(msg.get(), IPSET_ATTR_CIDR, prefix.length));
}

void put_line_number(const MsgPtr& msg) {
  check_nl_result("set ipset lineno",
                  nla_put_u32(msg.get(), IPSET_ATTR_LINENO | NLA_F_NET_BYTEORDER, 0));
}

void put_packet_mark(const MsgPtr& msg, std::uint32_t value, std::uint32_t mask) {
  const std::uint64_t mark = static_cast<std::uint64_t>(value) << 32 | mask;
  check_nl_result("set ipset mark",
                  nla_put_u64(msg.get(), IPSET_ATTR_SKBMARK | NLA_F_NET_BYTEORDER, htobe64(mark)));
}

// A message about one entry, without its mark.
template <typename Key>
MsgPtr entry_message(int command, const Key& address) {
  MsgPtr msg = new_message(command, family_of(address));
  nlattr* const data = begin_nest(msg, kData, "nested allocation failed");
  put_address(msg, address);
  put_line_number(msg);
  nla_nest_end(msg.get(), data);
  return msg;
}

// `subject` names the operation in both messages.
void send(const SocketPtr& sock, const MsgPtr& msg, const std::string& subject,
          const std::string& object) {
  check_nl_result("send " + subject + " " + object, nl_send_auto(sock.get(), msg.get()));
  check_nl_result(subject + " " + object + " ack", nl_wait_for_ack(sock.get()));
}

nlattr* member_of(nlattr* nest, int number) {
  if (nest == nullptr) return nullptr;
  return nla_find(static_cast<nlattr*>(nla_data(nest)), nla_len(nest), number);
}

std::optional<std::uint32_t> read_key(nlattr* data, std::uint32_t /*kind*/) {
  return value<std::uint32_t>(member_of(member_of(data, IPSET_ATTR_IP), IPSET_ATTR_IPADDR_IPV4));
}

std::optional<Ip6Prefix> read_key(nlattr* data, const Ip6Prefix& whole) {
  const auto address =
      value<Ip6Address>(member_of(member_of(data, IPSET_ATTR_IP), IPSET_ATTR_IPADDR_IPV6));
  if (!address) return std::nullopt;
  const auto length = value<std::uint8_t>(member_of(data, IPSET_ATTR_CIDR));
  return Ip6Prefix{*address, length.value_or(whole.length)};
}

template <typename Key>
std::optional<SetEntry<Key>> read_entry(nlattr* data) {
  const auto address = read_key(data, Key{});
  if (!address) return std::nullopt;
  const auto mark = value<std::uint64_t>(member_of(data, IPSET_ATTR_SKBMARK));
  const std::uint64_t bits = be64toh(mark.value_or(0));
  return SetEntry<Key>{*address, static_cast<std::uint32_t>(bits >> 32),
                       static_cast<std::uint32_t>(bits)};
}

// The kernel sends the set in several messages.
template <typename Key>
int note_part(nl_msg* message, void* set) {
  auto& standing = *static_cast<ListedSet<Key>*>(set);
  const auto attribute = [message](int number) {
    return nlmsg_find_attr(nlmsg_hdr(message), sizeof(nfgenmsg), number);
  };
  nlattr* const type = attribute(IPSET_ATTR_TYPENAME);
  if (type != nullptr) standing.type = nla_get_string(type);
  nlattr* const list = attribute(IPSET_ATTR_ADT);
  if (list == nullptr) return NL_OK;
  nlattr* data = nullptr;
  int rest = 0;
  nla_for_each_nested(data, list, rest) {
    const auto entry = read_entry<Key>(data);
    if (entry) standing.entries.push_back(*entry);
  }
  return NL_OK;
}

template <typename Key>
int receive_list(const SocketPtr& sock, ListedSet<Key>& set) {
  const CallbackPtr own(nl_socket_get_cb(sock.get()));
  const CallbackPtr callbacks(nl_cb_clone(own.get()));
  if (callbacks == nullptr) return -NLE_NOMEM;
  nl_cb_set(callbacks.get(), NL_CB_VALID, NL_CB_CUSTOM, note_part<Key>, &set);
  return nl_recvmsgs(sock.get(), callbacks.get());
}

template <typename Key>
std::optional<ListedSet<Key>> list_set(const SocketPtr& sock) {
  const MsgPtr msg = new_message(IPSET_CMD_LIST, family_of(Key{}));
  nlmsg_hdr(msg.get())->nlmsg_flags |= NLM_F_DUMP;
  check_nl_result("send list ipset", nl_send_auto(sock.get(), msg.get()));
  ListedSet<Key> set;
  const int result = receive_list(sock, set);
  // "Invalid" is the answer of a kernel without sets.
  if (result == -NLE_OBJ_NOTFOUND || result == -NLE_INVAL) return std::nullopt;
  check_nl_result("list ipset", result);
  return set;
}

template <typename Key>
void add_entry(const SocketPtr& sock, const SetEntry<Key>& entry) {
  const MsgPtr msg = new_message(IPSET_CMD_ADD, family_of(entry.address));
  nlattr* const data = begin_nest(msg, kData, "nested allocation failed");
  put_address(msg, entry.address);
  put_packet_mark(msg, entry.mark, entry.mask);
  put_line_number(msg);
  nla_nest_end(msg.get(), data);
  send(sock, msg, "add", "ipset ip");
}

template <typename Key>
bool has_entry(const SocketPtr& sock, const Key& address) {
  const MsgPtr msg = entry_message(IPSET_CMD_TEST, address);
  return nl_send_auto(sock.get(), msg.get()) >= 0 && nl_wait_for_ack(sock.get()) >= 0;
}

template <typename Key>
void delete_entry(const SocketPtr& sock, const Key& address) {
  send(sock, entry_message(IPSET_CMD_DEL, address), "del", "ipset ip");
}

template <typename Key>
std::vector<SetEntry<Key>> entries_of(const TariffSet& set,
                                      std::vector<Key> TariffSettings::*addresses) {
  std::vector<SetEntry<Key>> entries;
  for (const TariffSettings& tariff : set.tariffs()) {
    const auto number = static_cast<std::uint64_t>(static_cast<std::int64_t>(tariff.id));
    for (const Key& address : tariff.*addresses)
      entries.push_back(address_set_entry(address, number));
  }
  return entries;
}

}  // namespace

AddressSetEntry address_set_entry(std::uint32_t address, std::uint64_t number) {
  return {address, class_mark(number), kMarkMask};
}

PrefixSetEntry address_set_entry(const Ip6Prefix& prefix, std::uint64_t number) {
  return {prefix, class_mark(number), kMarkMask};
}

std::vector<AddressSetEntry> address_set_entries(const TariffSet& set) {
  return entries_of(set, &TariffSettings::addresses);
}

std::vector<PrefixSetEntry> prefix_set_entries(const TariffSet& set) {
  return entries_of(set, &TariffSettings::prefixes);
}

void create_address_set(const SocketPtr& sock, Family family) {
  const SetKind& kind = kind_of(family);
  const MsgPtr msg = new_message(IPSET_CMD_CREATE, family);
  check_nl_result("set ipset type", nla_put_string(msg.get(), IPSET_ATTR_TYPENAME, kind.type));
  check_nl_result("set ipset revision", nla_put_u8(msg.get(), IPSET_ATTR_REVISION, kind.revision));
  check_nl_result("set ipset family", nla_put_u8(msg.get(), IPSET_ATTR_FAMILY, kind.family));
  nlattr* const data = begin_nest(msg, kData, "nested allocation failed");
  check_nl_result("set ipset cadt flags",
                  nla_put_u32(msg.get(), IPSET_ATTR_CADT_FLAGS | NLA_F_NET_BYTEORDER,
                              htonl(IPSET_FLAG_WITH_SKBINFO)));
  nla_nest_end(msg.get(), data);
  send(sock, msg, "create", "ipset");
}

void flush_address_set(const SocketPtr& sock) {
  send(sock, new_message(IPSET_CMD_FLUSH, Family::ipv4), "delete", "ipset");
}

void flush_prefix_set(const SocketPtr& sock) {
  const MsgPtr msg = new_message(IPSET_CMD_FLUSH, Family::ipv6);
  check_nl_result("send delete ipset", nl_send_auto(sock.get(), msg.get()));
  const int result = nl_wait_for_ack(sock.get());
  if (result != -NLE_OBJ_NOTFOUND) check_nl_result("delete ipset ack", result);
}

void add_address(const SocketPtr& sock, const AddressSetEntry& entry) { add_entry(sock, entry); }
void add_address(const SocketPtr& sock, const PrefixSetEntry& entry) { add_entry(sock, entry); }

bool has_address(const SocketPtr& sock, std::uint32_t address) { return has_entry(sock, address); }

// Asked for a whole address, the kernel answers for the longest prefix that holds it.
bool has_address(const SocketPtr& sock, const Ip6Prefix& prefix) {
  if (!has_entry(sock, prefix)) return false;
  if (prefix.length < kIp6AddressBits) return true;
  const auto set = list_prefix_set(sock);
  return set && std::any_of(set->entries.begin(), set->entries.end(),
                            [&prefix](const auto& entry) { return entry.address == prefix; });
}

template <typename Key>
bool ListedSet<Key>::is_of_our_type() const {
  return type == kind_of(family_of(Key{})).type;
}

template struct ListedSet<std::uint32_t>;
template struct ListedSet<Ip6Prefix>;

std::optional<StandingSet> list_address_set(const SocketPtr& sock) {
  return list_set<std::uint32_t>(sock);
}

std::optional<StandingPrefixSet> list_prefix_set(const SocketPtr& sock) {
  return list_set<Ip6Prefix>(sock);
}

void delete_address(const SocketPtr& sock, std::uint32_t address) { delete_entry(sock, address); }
void delete_address(const SocketPtr& sock, const Ip6Prefix& prefix) { delete_entry(sock, prefix); }

}  // namespace quenby
