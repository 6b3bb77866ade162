#include <netlink/errno.h>
#include <netlink/route/qdisc/htb.h>

#include "cli/error.h"
#include "tc/htb_intf.h"
#include "tc/nl_error.h"
#include "tc/qdisc_query.h"

// The qdiscs of a device.
namespace quenby {

QdiscPtr HtbIntf::new_qdisc(const char* kind) const {
  QdiscPtr qdisc(rtnl_qdisc_alloc());
  if (qdisc == nullptr) _error("Cannot allocate rtnl_qdisc");
  attach(TC_CAST(qdisc.get()), kind);
  return qdisc;
}

void HtbIntf::root_qdisc_add(bool with_default) {
  const QdiscPtr qdisc = new_qdisc("htb");
  rtnl_tc_set_parent(TC_CAST(qdisc.get()), TC_H_ROOT);
  rtnl_tc_set_handle(TC_CAST(qdisc.get()), kHtbHandle);
  if (with_default) rtnl_htb_set_defcls(qdisc.get(), def_cid());
  chk_nl_error("add qdisc", rtnl_qdisc_add(sock(), qdisc.get(), NLM_F_CREATE), false);
}

QdiscPtr HtbIntf::root_qdisc() const {
  nl_cache* all = nullptr;
  const int result = rtnl_qdisc_alloc_cache(sock(), &all);
  if (result < 0) nl_fatal("Cannot allocate rtnl_qdisc_cache", result);
  const CachePtr cache(all, nl_cache_free);
  return QdiscPtr(rtnl_qdisc_get_by_parent(cache.get(), ifindex(), TC_H_ROOT));
}

bool HtbIntf::qdisc_stands(const char* kind, std::uint32_t handle, std::uint32_t parent) const {
  if (!has_link()) return false;
  MsgPtr query = qdisc_query(ifindex(), kind, handle, parent);
  return query != nullptr && nl_send_sync(sock(), query.release()) >= 0;
}

void HtbIntf::del_qdisc_of(int ifindex, const std::string& kind, std::uint32_t handle,
                           std::uint32_t parent) {
  const QdiscPtr qdisc = new_qdisc(kind.c_str());
  rtnl_tc_set_ifindex(TC_CAST(qdisc.get()), ifindex);
  rtnl_tc_set_parent(TC_CAST(qdisc.get()), parent);
  rtnl_tc_set_handle(TC_CAST(qdisc.get()), handle);
  const int result = rtnl_qdisc_delete(sock(), qdisc.get());
  const bool gone = result == -NLE_OBJ_NOTFOUND || result == -NLE_INVAL || result == -NLE_NODEV;
  chk_nl_error("delete " + kind + " qdisc", result, gone);
}

void HtbIntf::root_qdisc_del() {
  if (!has_link()) return;
  const QdiscPtr root = root_qdisc();
  // The qdisc that the kernel gives every device by itself has handle 0 and cannot be deleted.
  if (root == nullptr || rtnl_tc_get_handle(TC_CAST(root.get())) == 0) return;
  chk_nl_error("delete qdisc", rtnl_qdisc_delete(sock(), root.get()), true);
}

void HtbIntf::init_qdisc(const GlobalSet& g) {
  if (has_link()) {
    root_qdisc_del();
  } else {
    link_add();
  }
  root_qdisc_add(g.defaults.direction(ingress()).speed != kNeverSet);
}

int HtbIntf::add_qdisc(rtnl_qdisc* qdisc) {
  const int result = rtnl_qdisc_add(sock(), qdisc, NLM_F_CREATE);
  const std::uint32_t parent = rtnl_tc_get_parent(TC_CAST(qdisc));
  const bool is_leaf = TC_H_MAJ(parent) == kHtbHandle;
  if (result != -NLE_INVAL || !is_leaf) return result;
  // To an sfq leaf that stands already, or to one of another kind, adding is a change, which the
  // kernel refuses so. Naming no kind deletes either.
  const QdiscPtr standing = new_qdisc(nullptr);
  rtnl_tc_set_parent(TC_CAST(standing.get()), parent);
  rtnl_tc_set_handle(TC_CAST(standing.get()), rtnl_tc_get_handle(TC_CAST(qdisc)));
  rtnl_qdisc_delete(sock(), standing.get());
  return rtnl_qdisc_add(sock(), qdisc, NLM_F_CREATE);
}

void HtbIntf::qdisc_op(const std::string& kind, std::uint32_t handle, std::uint32_t parent,
                       const BandwidthSettings& s, htb_action action, const QdiscSetup& setup) {
  const QdiscPtr qdisc = new_qdisc(kind.c_str());
  rtnl_tc_set_parent(TC_CAST(qdisc.get()), parent);
  rtnl_tc_set_handle(TC_CAST(qdisc.get()), handle);
  if (action == htb_action::create) {
    setup(s, qdisc.get());
    chk_nl_error("add " + kind + " qdisc", add_qdisc(qdisc.get()), false);
  } else if (action == htb_action::remove) {
    if (!has_link()) return;
    const int result = rtnl_qdisc_delete(sock(), qdisc.get());
    const bool gone = result == -NLE_OBJ_NOTFOUND || result == -NLE_INVAL;
    chk_nl_error("delete " + kind + " qdisc", result, gone);
  } else {
    _error(name() + ": wrong " + kind + " action " + action_name(action));
  }
}

}  // namespace quenby
