#pragma once

#include <string>

#include "tc/htb_mark_intf.h"

namespace quenby {

/// Upload through the WAN device, which must exist. The device also carries the ingress qdisc whose
/// filter feeds the IFB device.
class HtbEthIntf : public HtbMarkIntf {
 public:
  using HtbMarkIntf::class_op;

  HtbEthIntf(const std::string& name, SocketPtr& sock, CachePtr& link_cache);

  const char* kind() const override { return ""; }
  void setup(GlobalSet& set, const GlobalSet& given, bool tariffs,
             std::int64_t link_speed) override;
  void teardown(const GlobalSet& set) override;
  void update_filter(const GlobalSettings& g, std::int64_t speed, bool redirect,
                     bool restore_mark) override;
  std::string& fill_fw_rules(const GlobalSet& set, std::string& list) const override;
  /// The ingress qdisc, and HTB or, while upload is blocked, the plain fair queue. False when the
  /// device does not exist: then nothing tells whether its addresses were ever put into the set.
  bool stands(const GlobalSettings& g) const override;
  void def_qdisc_op(const BandwidthSettings& def, htb_action action) override;
  void class_op(const TariffDirSettings& t, htb_action action) override;
  void def_class_op(const BandwidthSettings& def, htb_action action) override;
  void def_tar_class_op(const BandwidthSettings& def, htb_action action) override;
  void def_tar_qdisc_op(const BandwidthSettings& def, htb_action action) override;

  /// A plain fair queue as the root qdisc, in the place of HTB while upload is blocked.
  void global_fq_codel_op(const GlobalSettings& g, htb_action action);
  /// The ingress qdisc.
  void ingress_op(const GlobalSettings& g, htb_action action);
};

}  // namespace quenby
