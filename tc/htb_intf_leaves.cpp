#include "tc/assert.h"
#include "tc/fq_codel.h"
#include "tc/htb_intf.h"
#include "tc/pfifo.h"
#include "tc/sfq.h"

// The leaf qdiscs of a device.
namespace quenby {

void HtbIntf::tariff_leaf_op(const char* kind, const TariffDirSettings& t, htb_action action,
                             const QdiscSetup& setup) {
  const auto number = static_cast<unsigned>(t.id);
  qdisc_op(kind, qhandle(number), chandle(number), t, action, setup);
}

void HtbIntf::pfifo_op(const TariffDirSettings& t, htb_action action) {
  tariff_leaf_op("pfifo", t, action, set_pfifo);
}

void HtbIntf::sfq_op(const TariffDirSettings& t, htb_action action) {
  tariff_leaf_op("sfq", t, action, set_sfq);
}

void HtbIntf::fq_codel_op(const TariffDirSettings& t, htb_action action) {
  tariff_leaf_op("fq_codel", t, action, set_fq_codel);
}

void HtbIntf::tariff_qdisc_op(const TariffDirSettings& tariff, htb_action action) {
  TC_ASSERT(tariff.download() == ingress());
  if (tariff.qdisc == kQdiscPfifo) pfifo_op(tariff, action);
  if (tariff.qdisc == kQdiscSfq) sfq_op(tariff, action);
  if (tariff.qdisc == kQdiscFqCodel) fq_codel_op(tariff, action);
}

void HtbIntf::create_qdisc(const TariffDirSettings& tariff) {
  TC_ASSERT(tariff.download() == ingress());
  tariff_qdisc_op(tariff, htb_action::create);
}

void HtbIntf::delete_qdisc(const TariffDirSettings& tariff) {
  TC_ASSERT(tariff.download() == ingress());
  tariff_qdisc_op(tariff, htb_action::remove);
}

void HtbIntf::create_def_leaf(const BandwidthSettings& def) {
  def_class_op(def, htb_action::create);
  def_qdisc_op(def, htb_action::create);
}

void HtbIntf::default_leaf_op(const BandwidthSettings& def, unsigned number, htb_action action) {
  qdisc_op("fq_codel", qhandle(number), chandle(number), def, action, set_fq_codel);
}

}  // namespace quenby
