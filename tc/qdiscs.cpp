#include "tc/qdiscs.h"

#include <netlink/errno.h>
#include <netlink/route/qdisc/fifo.h>
#include <netlink/route/qdisc/fq_codel.h>
#include <netlink/route/qdisc/htb.h>
#include <netlink/route/qdisc/sfq.h>

#include "cli/error.h"
#include "tc/nl_error.h"
#include "tc/queries.h"

namespace quenby {
namespace {

// `kind` may be null.
QdiscPtr new_qdisc(const Device& device, const char* kind, std::uint32_t handle,
                   std::uint32_t parent) {
  QdiscPtr qdisc(rtnl_qdisc_alloc());
  if (qdisc == nullptr) _error("Cannot allocate rtnl_qdisc");
  rtnl_tc* const object = TC_CAST(qdisc.get());
  device.attach(object, kind);
  rtnl_tc_set_parent(object, parent);
  rtnl_tc_set_handle(object, handle);
  return qdisc;
}

void set_fq_codel(const Qdisc& values, rtnl_qdisc* qdisc) {
  check_nl_result("set fq_codel limit", rtnl_qdisc_fq_codel_set_limit(qdisc, values.limit));
  check_nl_result("set fq_codel ecn", rtnl_qdisc_fq_codel_set_ecn(qdisc, 0));
  if (values.quantum == 0) return;
  check_nl_result("set fq_codel quantum", rtnl_qdisc_fq_codel_set_quantum(qdisc, values.quantum));
}

void set_parameters(const Qdisc& values, rtnl_qdisc* qdisc) {
  switch (values.kind) {
    case QdiscKind::htb:
      if (values.default_class != 0) rtnl_htb_set_defcls(qdisc, values.default_class);
      break;
    case QdiscKind::ingress:
      break;
    case QdiscKind::fq_codel:
      set_fq_codel(values, qdisc);
      break;
    case QdiscKind::pfifo:
      check_nl_result("set pfifo limit", rtnl_qdisc_fifo_set_limit(qdisc, values.limit));
      break;
    case QdiscKind::sfq:
      rtnl_sfq_set_limit(qdisc, values.limit);
      break;
  }
}

QdiscPtr filled_qdisc(const Device& device, const Qdisc& values) {
  QdiscPtr qdisc = new_qdisc(device, kind_name(values.kind), values.handle, values.parent);
  set_parameters(values, qdisc.get());
  return qdisc;
}

int send_qdisc(const Device& device, rtnl_qdisc* qdisc) {
  const int result = rtnl_qdisc_add(device.sock, qdisc, NLM_F_CREATE);
  const std::uint32_t parent = rtnl_tc_get_parent(TC_CAST(qdisc));
  const bool is_leaf = TC_H_MAJ(parent) == kHtbHandle;
  if (result != -NLE_INVAL || !is_leaf) return result;
  // To an sfq leaf that stands already, or to one of another kind, adding is a change, which the
  // kernel refuses so. Naming no kind deletes either.
  const std::uint32_t handle = rtnl_tc_get_handle(TC_CAST(qdisc));
  const QdiscPtr standing = new_qdisc(device, nullptr, handle, parent);
  rtnl_qdisc_delete(device.sock, standing.get());
  return rtnl_qdisc_add(device.sock, qdisc, NLM_F_CREATE);
}

QdiscPtr root_of(const Device& device) {
  nl_cache* all = nullptr;
  const int result = rtnl_qdisc_alloc_cache(device.sock, &all);
  if (result < 0) nl_fatal("Cannot allocate rtnl_qdisc_cache", result);
  const CachePtr cache(all, nl_cache_free);
  return QdiscPtr(rtnl_qdisc_get_by_parent(cache.get(), device.ifindex, TC_H_ROOT));
}

}  // namespace

void add_qdisc(const Device& device, const Qdisc& values) {
  const std::string kind = kind_name(values.kind);
  const QdiscPtr qdisc = filled_qdisc(device, values);
  const int result = send_qdisc(device, qdisc.get());
  if (values.kind == QdiscKind::htb) {
    device.chk_nl_error("add qdisc", result);
  } else {
    device.chk_nl_error("add " + kind + " qdisc", result);
  }
}

void add_qdisc(const Device& device, const std::string& kind, std::uint32_t handle,
               std::uint32_t parent, const std::function<void(rtnl_qdisc*)>& setup) {
  const QdiscPtr qdisc = new_qdisc(device, kind.c_str(), handle, parent);
  setup(qdisc.get());
  device.chk_nl_error("add " + kind + " qdisc", send_qdisc(device, qdisc.get()));
}

void delete_qdisc(const Device& device, const Qdisc& values) {
  delete_qdisc(device, kind_name(values.kind), values.handle, values.parent);
}

void delete_qdisc(const Device& device, const std::string& kind, std::uint32_t handle,
                  std::uint32_t parent) {
  if (!device.exists()) return;
  const QdiscPtr qdisc = new_qdisc(device, kind.c_str(), handle, parent);
  const int result = rtnl_qdisc_delete(device.sock, qdisc.get());
  // "Invalid" is the answer where another qdisc, or none, stands at the parent.
  const bool gone = result == -NLE_NODEV || result == -NLE_INVAL;
  if (!gone) device.chk_deleted("delete " + kind + " qdisc", result);
}

MsgPtr qdisc_request(const Device& device, const Qdisc& values) {
  const QdiscPtr qdisc = filled_qdisc(device, values);
  nl_msg* request = nullptr;
  device.chk_nl_error("add qdisc",
                      rtnl_qdisc_build_add_request(qdisc.get(), NLM_F_CREATE, &request));
  return MsgPtr(request);
}

void delete_root_qdisc(const Device& device) {
  if (!device.exists()) return;
  const QdiscPtr root = root_of(device);
  // The qdisc that the kernel gives every device by itself has handle 0 and cannot be deleted.
  if (root == nullptr || rtnl_tc_get_handle(TC_CAST(root.get())) == 0) return;
  rtnl_qdisc_delete(device.sock, root.get());
}

bool qdisc_stands(const Device& device, const Qdisc& qdisc) {
  return device.exists() &&
         is_acknowledged(device, qdisc_query(device.ifindex, kind_name(qdisc.kind), qdisc.handle,
                                             qdisc.parent));
}

}  // namespace quenby
