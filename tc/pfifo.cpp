#include "tc/pfifo.h"

#include <netlink/route/qdisc/fifo.h>

#include "tc/nl_error.h"

namespace quenby {

int pfifo_limit(const BandwidthSettings& settings) { return settings.speed != 0 ? 11000 : 0; }

void set_pfifo(const BandwidthSettings& settings, rtnl_qdisc* qdisc) {
  check_nl_result("set pfifo limit", rtnl_qdisc_fifo_set_limit(qdisc, pfifo_limit(settings)));
}

}  // namespace quenby
