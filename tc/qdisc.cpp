#include "tc/qdisc.h"

#include <linux/pkt_sched.h>

namespace quenby {
namespace {

Qdisc fq_codel(std::uint32_t handle, std::uint32_t parent, std::int64_t speed) {
  const FqCodel values = fq_codel_values(kbps_of(speed));
  return {QdiscKind::fq_codel, handle, parent, values.limit, values.quantum, 0};
}

}  // namespace

const char* kind_name(QdiscKind kind) {
  switch (kind) {
    case QdiscKind::htb:
      return "htb";
    case QdiscKind::ingress:
      return "ingress";
    case QdiscKind::fq_codel:
      return "fq_codel";
    case QdiscKind::pfifo:
      return "pfifo";
    case QdiscKind::sfq:
      return "sfq";
  }
  return "";
}

FqCodel fq_codel_values(std::int64_t kbps) {
  if (kbps < 0) return {0, 0};
  if (kbps == 0) return {0, 300};
  if (kbps <= 10'000) return {600, 300};
  if (kbps <= 100'000) return {800, 300};
  if (kbps <= 1'000'000) return {1200, 1514};
  return {10240, 1514};
}

int pfifo_limit(std::int64_t speed) { return speed != 0 ? 11000 : 0; }

int sfq_limit(std::int64_t speed) { return speed != 0 ? 127 : 0; }

Qdisc htb_root(bool with_default) {
  const unsigned default_class = with_default ? kDefaultClass : 0;
  return {QdiscKind::htb, kHtbHandle, TC_H_ROOT, 0, 0, default_class};
}

Qdisc plain_root(std::int64_t speed) { return fq_codel(kPlainRootHandle, TC_H_ROOT, speed); }

Qdisc plain_root_for_discovery(std::int64_t speed) {
  Qdisc root = plain_root(speed);
  root.limit = kDiscoveryLimit;
  return root;
}

Qdisc ingress_qdisc() { return {QdiscKind::ingress, kIngressHandle, TC_H_INGRESS, 0, 0, 0}; }

std::optional<Qdisc> tariff_leaf(HandleScheme scheme, const ResolvedTariff& t) {
  const std::int64_t speed = t.rates.ceiling;
  const std::uint32_t handle = leaf_handle(scheme, t.number);
  const std::uint32_t parent = class_handle(class_minor(scheme, t.number));
  switch (t.qdisc) {
    case kQdiscPfifo:
      return Qdisc{QdiscKind::pfifo, handle, parent, pfifo_limit(speed), 0, 0};
    case kQdiscSfq:
      return Qdisc{QdiscKind::sfq, handle, parent, sfq_limit(speed), 0, 0};
    case kQdiscFqCodel:
      return fq_codel(handle, parent, speed);
    default:
      return std::nullopt;
  }
}

Qdisc default_leaf(HandleScheme scheme, unsigned number, std::int64_t speed) {
  return fq_codel(leaf_handle(scheme, number), class_handle(class_minor(scheme, number)), speed);
}

}  // namespace quenby
