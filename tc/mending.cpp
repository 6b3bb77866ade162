#include "tc/mending.h"

#include "cli/system.h"
#include "tc/classes.h"
#include "tc/filters.h"
#include "tc/links.h"
#include "tc/qdiscs.h"

namespace quenby {
namespace {

struct Sender {
  const Device& device;
  nl_cache* links;

  void operator()(const MakeDevice& m) const { add_link(device, m.kind, links); }
  void operator()(const DropDevice&) const { delete_link(device, links); }
  void operator()(const RaiseDevice&) const { raise_link(device); }
  void operator()(const DropRoot&) const { delete_root_qdisc(device); }
  void operator()(const MakeQdisc& m) const { add_qdisc(device, m.qdisc); }
  void operator()(const DropQdisc& m) const { delete_qdisc(device, m.kind, m.handle, m.parent); }
  void operator()(const MakeClass& m) const { add_class(device, m.htb); }
  void operator()(const ChangeClass& m) const { replace_class(device, m.htb); }
  void operator()(const DropClass& m) const {
    HtbClass htb;
    htb.handle = m.handle;
    htb.parent = m.parent;
    delete_class(device, htb);
  }
  void operator()(const MakeTable& m) const {
    add_u32_table(device, m.table, kClassifierPrio, false);
  }
  void operator()(const MakeMatch& m) const { add_u32_filter(device, m.match, kClassifierPrio); }
  void operator()(const MakeClassifier& m) const {
    if (m.family == Family::ipv4) return add_mark_filter(device, kClassifierPrio);
    add_mark_filter(device, kIp6ClassifierPrio, ETH_P_IPV6);
  }
  void operator()(const MakeDiscovery&) const { add_discovery_filter(device); }
  void operator()(const DropFilter& m) const {
    delete_filter(device, m.kind, m.parent, m.handle, m.prio, m.protocol);
  }
  void operator()(const RunCommand& m) const { run_commands(m.command); }
};

}  // namespace

void mend(const Device& device, const Mending& mending, nl_cache* links) {
  std::visit(Sender{device, links}, mending);
}

}  // namespace quenby
