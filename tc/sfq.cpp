#include "tc/sfq.h"

#include <netlink/route/qdisc/sfq.h>

namespace quenby {

int sfq_limit(const BandwidthSettings& settings) { return settings.speed != 0 ? 127 : 0; }

void set_sfq(const BandwidthSettings& settings, rtnl_qdisc* qdisc) {
  rtnl_sfq_set_limit(qdisc, sfq_limit(settings));
}

}  // namespace quenby
