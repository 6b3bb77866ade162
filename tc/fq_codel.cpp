#include "tc/fq_codel.h"

#include <netlink/route/qdisc/fq_codel.h>

#include "tc/nl_error.h"

namespace quenby {

FqCodel fq_codel_values(std::int64_t kbps) {
  if (kbps < 0) return {0, 0};
  if (kbps == 0) return {0, 300};
  if (kbps <= 10'000) return {600, 300};
  if (kbps <= 100'000) return {800, 300};
  if (kbps <= 1'000'000) return {1200, 1514};
  return {10240, 1514};
}

void set_fq_codel(const BandwidthSettings& settings, rtnl_qdisc* qdisc) {
  const FqCodel values = fq_codel_values(settings.speedKbps());
  check_nl_result("set fq_codel limit", rtnl_qdisc_fq_codel_set_limit(qdisc, values.limit));
  check_nl_result("set fq_codel ecn", rtnl_qdisc_fq_codel_set_ecn(qdisc, 0));
  if (values.quantum == 0) return;
  check_nl_result("set fq_codel quantum", rtnl_qdisc_fq_codel_set_quantum(qdisc, values.quantum));
}

}  // namespace quenby
