#include "tc/class_counters.h"

#include <linux/gen_stats.h>
#include <linux/pkt_sched.h>
#include <linux/rtnetlink.h>

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

// Calls `note` with header and attributes of each object that the kernel lists; a libnl result.
template <typename Note>
int list_tc(nl_sock* sock, int type, const tcmsg& header, const Note& note) {
  return list_objects(sock, type, header, [&note](const nlmsghdr* message) {
    nlattr* members[TCA_MAX + 1];
    if (nlmsg_parse(const_cast<nlmsghdr*>(message), sizeof(tcmsg), members, TCA_MAX, nullptr) >= 0)
      note(*static_cast<const tcmsg*>(nlmsg_data(message)), members);
  });
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

}  // namespace

std::vector<ClassCounters> class_counters(const Device& device) {
  tcmsg header{};
  header.tcm_ifindex = device.ifindex;
  // Only classes of this qdisc: fq_codel would look through 1,024 flows for each leaf.
  header.tcm_parent = kHtbHandle;
  std::vector<ClassCounters> classes;
  const auto note = [&classes](const tcmsg& listed, nlattr* const* members) {
    if (TC_H_MAJ(listed.tcm_handle) == kHtbHandle)
      classes.push_back(counters_of(listed.tcm_handle, members[TCA_STATS2]));
  };
  device.chk_nl_error("list classes", list_tc(device.sock, RTM_GETTCLASS, header, note));
  return classes;
}

std::vector<LeafDrops> leaf_drops(nl_sock* sock) {
  std::vector<LeafDrops> leaves;
  const auto note = [&leaves](const tcmsg& listed, nlattr* const* members) {
    if (TC_H_MAJ(listed.tcm_parent) != kHtbHandle) return;
    const ClassCounters counters = counters_of(listed.tcm_handle, members[TCA_STATS2]);
    leaves.push_back({listed.tcm_ifindex, listed.tcm_parent, counters.drops});
  };
  check_nl_result("list qdiscs", list_tc(sock, RTM_GETQDISC, tcmsg{}, note));
  return leaves;
}

}  // namespace quenby
