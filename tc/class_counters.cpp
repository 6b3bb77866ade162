#include "tc/class_counters.h"

#include <linux/gen_stats.h>
#include <linux/pkt_sched.h>
#include <linux/rtnetlink.h>
#include <netlink/errno.h>

#include <utility>

#include "tc/attributes.h"
#include "tc/handles.h"
#include "tc/listing.h"
#include "tc/nl_error.h"
#include "tc/nl_types.h"

// The statistics of a listed object, TCA_STATS2:
//
//   TCA_STATS_BASIC   bytes (64 bits), packets (32 bits)
//   TCA_STATS_PKT64   packets, where 32 bits do not hold them
//   TCA_STATS_QUEUE   qlen, backlog, drops, requeues, overlimits (32 bits each)
//
// HTB fills in its leaf's length and backlog, but its own drops.
namespace quenby {
namespace {

// Header and statistics of a listed object.
struct Listed {
  tcmsg header{};
  nlattr* statistics = nullptr;
};

std::optional<Listed> read(const nlmsghdr* message) {
  nlattr* members[TCA_MAX + 1];
  if (nlmsg_parse(const_cast<nlmsghdr*>(message), sizeof(tcmsg), members, TCA_MAX, nullptr) < 0)
    return std::nullopt;
  return Listed{*static_cast<const tcmsg*>(nlmsg_data(message)), members[TCA_STATS2]};
}

ClassCounters counters_of(std::uint32_t handle, nlattr* statistics) {
  const Nest<TCA_STATS_MAX> listed(statistics);
  const auto basic = value<gnet_stats_basic>(listed[TCA_STATS_BASIC]).value_or(gnet_stats_basic{});
  const auto queue = value<gnet_stats_queue>(listed[TCA_STATS_QUEUE]).value_or(gnet_stats_queue{});
  ClassCounters counters;
  counters.handle = handle;
  counters.packets = value<std::uint64_t>(listed[TCA_STATS_PKT64]).value_or(basic.packets);
  counters.bytes = basic.bytes;
  counters.drops = queue.drops;
  counters.overlimits = queue.overlimits;
  counters.backlog_bytes = queue.backlog;
  counters.backlog_packets = queue.qlen;
  return counters;
}

CounterLists list_counters(nl_sock* sock, int type, const tcmsg& header, int& result) {
  CounterLists lists;
  result =
      list_objects(sock, type, header, [&lists](const nlmsghdr* message) { lists.note(message); });
  return lists;
}

}  // namespace

void CounterLists::note(const nlmsghdr* message) {
  const auto listed = read(message);
  if (!listed) return;
  const tcmsg& header = listed->header;
  if (message->nlmsg_type == RTM_NEWTCLASS && TC_H_MAJ(header.tcm_handle) == kHtbHandle) {
    classes[header.tcm_ifindex].push_back(counters_of(header.tcm_handle, listed->statistics));
  } else if (message->nlmsg_type == RTM_NEWQDISC && TC_H_MAJ(header.tcm_parent) == kHtbHandle) {
    const ClassCounters counters = counters_of(header.tcm_handle, listed->statistics);
    leaves.push_back({header.tcm_ifindex, header.tcm_parent, counters.drops});
  }
}

std::vector<ClassCounters> class_counters(const Device& device) {
  tcmsg header{};
  header.tcm_ifindex = device.ifindex;
  // Only classes of this qdisc: fq_codel would look through 1,024 flows for each leaf.
  header.tcm_parent = kHtbHandle;
  int result = 0;
  CounterLists lists = list_counters(device.sock, RTM_GETTCLASS, header, result);
  device.chk_nl_error("list classes", result);
  return std::move(lists.classes[device.ifindex]);
}

std::optional<ClassCounters> class_counters(const Device& device, std::uint32_t handle) {
  tcmsg header{};
  header.tcm_ifindex = device.ifindex;
  header.tcm_handle = handle;
  CounterLists lists;
  const int result = get_object(device.sock, RTM_GETTCLASS, header,
                                [&lists](const nlmsghdr* message) { lists.note(message); });
  if (result == -NLE_OBJ_NOTFOUND) return std::nullopt;
  device.chk_nl_error("get class", result);
  const std::vector<ClassCounters>& classes = lists.classes[device.ifindex];
  if (classes.empty()) return std::nullopt;
  return classes.front();
}

std::vector<LeafDrops> leaf_drops(nl_sock* sock) {
  int result = 0;
  CounterLists lists = list_counters(sock, RTM_GETQDISC, tcmsg{}, result);
  check_nl_result("list qdiscs", result);
  return std::move(lists.leaves);
}

}  // namespace quenby
