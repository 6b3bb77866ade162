#pragma once

#include <vector>

#include "tc/htb_intf.h"

namespace quenby {

/// A device that classifies by packet mark: the WAN device for upload, the IFB device for download.
/// The firewall sets the marks; one filter serves every class.
class HtbMarkIntf : public HtbIntf {
 public:
  using HtbIntf::class_op;
  using HtbIntf::HtbIntf;

  void create_leaves(const GlobalSettings& g, const TariffSet& set) override;

  void update_leaves(const GlobalSettings& g, const TariffSet& removed, const TariffSet& added,
                     bool remove) override;
  void stat_classes(nl_cache* cache, rtnl_class* filter, const TariffConfig& cfg) const override;
  /// A direction of a WAN device that does not exist wants nothing.
  bool wants_tree(const GlobalSettings& g) const override;

  /// The default tariff's class, with the guarantee of its settings.
  virtual void def_tar_class_op(const BandwidthSettings& def, htb_action action) = 0;
  /// The fq_codel leaf under it.
  virtual void def_tar_qdisc_op(const BandwidthSettings& def, htb_action action) = 0;
  /// Both.
  void create_def_tar_leaf(const BandwidthSettings& def);

  /// Sends every packet to the class that its mark names: an fw filter with our mask or, on kernels
  /// that refuse that, a classic-BPF one of the same meaning.
  void add_fw_filter(unsigned prio);

  /// Class and leaf qdisc of one tariff; nothing without addresses.
  void create_fw_leaf(const TariffDirSettings& t, const std::vector<std::uint32_t>& addresses);
  void _create_fw_leaves(const GlobalSettings& g, const TariffSet& set);
  /// The same for every tariff, the root class's burst raised to the largest of theirs; nothing
  /// when the device does not exist or the direction is blocked or has no speed.
  void create_fw_leaves(const GlobalSettings& g, const TariffSet& set);

  /// Deletes leaf qdisc and class of one tariff; nothing without addresses or with `remove` false.
  void delete_fw_leaf(const TariffDirSettings& t, bool remove,
                      const std::vector<std::uint32_t>& addresses);
  /// Deletes those of `removed` and then makes those of `added`, with the same exceptions.
  void update_fw_leaves(const GlobalSettings& g, const TariffSet& removed, const TariffSet& added,
                        bool remove);

 protected:
  HandleScheme scheme() const override { return HandleScheme::mark; }

  /// HTB root, classes of the line and of the default tariff, and filters. For a direction whose
  /// speed is neither never set nor 0.
  void build_tree(GlobalSet& set, const GlobalSet& given, bool tariffs, std::int64_t link_speed);

 private:
  int send_mark_program(unsigned prio);
};

}  // namespace quenby
