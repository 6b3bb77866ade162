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
  void setup(const DeviceTree& tree) override;
  void teardown(const GlobalSet& set) override;
  std::string& fill_fw_rules(const GlobalSet& set, std::string& list) const override;
  /// False when the device does not exist: then nothing tells whether its addresses were ever put
  /// into the set.
  bool stands(const DeviceTree& tree) const override;
  void def_qdisc_op(const BandwidthSettings& def, htb_action action) override;
  void class_op(const TariffDirSettings& t, htb_action action) override;
  void def_class_op(const BandwidthSettings& def, htb_action action) override;
  void def_tar_class_op(const BandwidthSettings& def, htb_action action) override;
  void def_tar_qdisc_op(const BandwidthSettings& def, htb_action action) override;

  /// A plain fair queue as the root qdisc, in the place of HTB while upload is blocked.
  void global_fq_codel_op(const GlobalSettings& g, htb_action action);
  /// The ingress qdisc, whose settings never matter.
  void ingress_op(const GlobalSettings& g, htb_action action);

 protected:
  void change_path(const MarkPath& path) override;
};

}  // namespace quenby
