#include "tc/standing_device.h"

#include <linux/filter.h>
#include <linux/pkt_cls.h>
#include <linux/rtnetlink.h>
#include <netlink/msg.h>

#include <cstring>
#include <netinet/in.h>
#include <utility>

#include "tc/attributes.h"
#include "tc/filters.h"
#include "tc/handles.h"
#include "tc/listing.h"
#include "tc/mark_filter.h"
#include "tc/nl_error.h"

namespace quenby {
namespace {

// The kernel's own first table, which requests call 0.
constexpr unsigned kRootTable = 0x800;

void check_listed(const char* what, int code) {
  if (code < 0) nl_fatal(std::string("Cannot list the ") + what, code);
}

bool is_mark_program(nlattr* attribute) {
  const Nest<TCA_BPF_MAX> options(attribute);
  const auto program = mark_program();
  nlattr* const found = options[TCA_BPF_OPS];
  return found != nullptr && nla_len(found) == int{sizeof(program)} &&
         std::memcmp(nla_data(found), program.data(), sizeof(program)) == 0;
}

// A kernel that takes the mask need not show it. One that names a class is for a single mark.
bool is_masked_fw(nlattr* attribute) {
  const Nest<TCA_FW_MAX> options(attribute);
  const auto mask = value<std::uint32_t>(options[TCA_FW_MASK]);
  return options[TCA_FW_CLASSID] == nullptr && (!mask || *mask == kMarkMask);
}

std::optional<U32Table> read_table(std::uint32_t handle, nlattr* attribute) {
  const auto buckets = value<std::uint32_t>(Nest<TCA_U32_MAX>(attribute)[TCA_U32_DIVISOR]);
  if (!buckets || TC_U32_KEY(handle) != 0) return std::nullopt;
  return U32Table{TC_U32_USERHTID(handle), *buckets};
}

std::optional<U32Filter> read_match(std::uint32_t handle, nlattr* attribute) {
  const Nest<TCA_U32_MAX> options(attribute);
  nlattr* const selector = options[TCA_U32_SEL];
  tc_u32_key key;
  if (selector == nullptr || nla_len(selector) < int{sizeof(tc_u32_sel) + sizeof(key)})
    return std::nullopt;
  const auto* const header = static_cast<const tc_u32_sel*>(nla_data(selector));
  if (header->nkeys != 1) return std::nullopt;
  std::memcpy(&key, header->keys, sizeof(key));
  U32Filter match;
  match.value = ntohl(key.val);
  match.mask = ntohl(key.mask);
  match.offset = key.off;
  match.table = TC_U32_USERHTID(handle);
  if (match.table == kRootTable) match.table = 0;
  match.bucket = TC_U32_HASH(handle);
  match.node = TC_U32_NODE(handle);
  match.link_table = TC_U32_USERHTID(value<std::uint32_t>(options[TCA_U32_LINK]).value_or(0));
  match.hash_mask = ntohl(header->hmask);
  match.hash_offset = static_cast<std::uint32_t>(header->hoff);
  match.classid = value<std::uint32_t>(options[TCA_U32_CLASSID]).value_or(0);
  return match;
}

// What `read` makes of each object under the HTB root. Asking for those alone spares the kernel the
// flows of each fq_codel leaf, which it lists as classes.
template <typename T>
std::vector<T> list_under_root(nl_sock* sock, int type, int ifindex, const char* what,
                               std::optional<T> (*read)(const nlmsghdr*), CounterLists* counters) {
  std::vector<T> list;
  tcmsg header{};
  header.tcm_ifindex = ifindex;
  header.tcm_parent = kHtbHandle;
  const int result = list_objects(sock, type, header, [&](const nlmsghdr* message) {
    auto object = read(message);
    if (object) list.push_back(*std::move(object));
    if (counters != nullptr) counters->note(message);
  });
  check_listed(what, result);
  return list;
}

bool is_htb_root(const TcObject* root) {
  return root != nullptr && root->kind == "htb" && root->handle == kHtbHandle;
}

}  // namespace

const TcObject* StandingDevice::qdisc_at(std::uint32_t parent) const {
  for (const TcObject& qdisc : qdiscs) {
    if (qdisc.parent == parent && qdisc.handle != 0) return &qdisc;
  }
  return nullptr;
}

QdiscsByDevice list_qdiscs(nl_sock* sock, CounterLists* counters) {
  QdiscsByDevice devices;
  const int result = list_objects(sock, RTM_GETQDISC, tcmsg{}, [&](const nlmsghdr* message) {
    if (counters != nullptr) counters->note(message);
    auto object = read_qdisc(message);
    if (!object) return;
    std::vector<TcObject>& qdiscs = devices[object->ifindex];
    qdiscs.push_back(*std::move(object));
  });
  check_listed("qdiscs", result);
  return devices;
}

std::optional<StandingFilter> read_filter(const nlmsghdr* message) {
  nlattr* members[TCA_MAX + 1];
  if (message->nlmsg_type != RTM_NEWTFILTER ||
      nlmsg_parse(const_cast<nlmsghdr*>(message), sizeof(tcmsg), members, TCA_MAX, nullptr) < 0 ||
      members[TCA_KIND] == nullptr)
    return std::nullopt;
  const auto& header = *static_cast<const tcmsg*>(nlmsg_data(message));
  StandingFilter filter;
  filter.kind = nla_get_string(members[TCA_KIND]);
  filter.handle = header.tcm_handle;
  filter.prio = TC_H_MAJ(header.tcm_info) >> 16;
  filter.protocol = ntohs(static_cast<std::uint16_t>(TC_H_MIN(header.tcm_info)));
  nlattr* const options = members[TCA_OPTIONS];
  if (filter.handle == 0 && options == nullptr) return std::nullopt;
  if (filter.kind == "bpf") filter.by_mark = is_mark_program(options);
  if (filter.kind == "fw") filter.by_mark = is_masked_fw(options);
  if (filter.kind == "u32") {
    filter.table = read_table(filter.handle, options);
    if (!filter.table) filter.match = read_match(filter.handle, options);
  }
  return filter;
}

StandingDevice read_device(nl_sock* sock, int ifindex, bool up, QdiscsByDevice& qdiscs,
                           CounterLists* counters) {
  StandingDevice device;
  device.ifindex = ifindex;
  device.up = up;
  device.qdiscs = std::move(qdiscs[ifindex]);
  if (is_htb_root(device.qdisc_at(TC_H_ROOT))) {
    device.classes = list_under_root(sock, RTM_GETTCLASS, ifindex, "classes", read_class, counters);
    device.filters =
        list_under_root(sock, RTM_GETTFILTER, ifindex, "filters", read_filter, nullptr);
  }
  device.ingress = ingress_filters(sock, ifindex);
  return device;
}

}  // namespace quenby
