#pragma once

#include <string>

#include "tc/htb_mark_intf.h"

namespace quenby {

/// Download through the IFB device that the WAN device's incoming traffic is redirected to.
class HtbIfbIntf : public HtbMarkIntf {
 public:
  using HtbMarkIntf::class_op;

  HtbIfbIntf(SocketPtr& sock, CachePtr& link_cache);

  const char* kind() const override { return "ifb"; }
  void setup(const DeviceTree& tree) override;
  /// Before it deletes the device it takes away what feeds it, on whatever device that is.
  void teardown(const GlobalSet& set) override;
  std::string& fill_fw_rules(const GlobalSet& set, std::string& list) const override;
  /// A tree that nobody wants stands, whatever there is.
  bool stands(const DeviceTree& tree) const override;
  void def_qdisc_op(const BandwidthSettings& def, htb_action action) override;
  void class_op(const TariffDirSettings& t, htb_action action) override;
  void def_class_op(const BandwidthSettings& def, htb_action action) override;
  void def_tar_class_op(const BandwidthSettings& def, htb_action action) override;
  void def_tar_qdisc_op(const BandwidthSettings& def, htb_action action) override;

 protected:
  void change_path(const MarkPath& path) override;

 private:
  /// Takes our tree and our redirection off the device `feeder`, if it has a redirection.
  void release(int feeder);
};

}  // namespace quenby
