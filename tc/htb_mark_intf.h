#pragma once

#include <vector>

#include "tc/htb_intf.h"

namespace quenby {

/// A device that classifies by packet mark: the WAN device for upload, the IFB device for download.
/// The firewall sets the marks; one filter serves every class.
class HtbMarkIntf : public HtbIntf {
 public:
  using HtbIntf::class_op;
  using HtbIntf::create_leaves;

  HtbMarkIntf(const std::string& name, Direction way, SocketPtr& sock, CachePtr& link_cache);

  void create_leaves(const GlobalSettings& g, const TariffSet& set) override;
  void update_filter(const GlobalSettings& g, std::int64_t speed, bool redirect,
                     bool restore_mark) override;
  void stat_classes(nl_cache* cache, rtnl_class* filter, const TariffConfig& cfg) const override;
  /// A direction of a WAN device that does not exist has none.
  bool has_tree(const ResolvedLine& line) const override;

  /// The default tariff's class, with the guarantee of its settings.
  virtual void def_tar_class_op(const BandwidthSettings& def, htb_action action) = 0;
  /// The fq_codel leaf under it.
  virtual void def_tar_qdisc_op(const BandwidthSettings& def, htb_action action) = 0;
  /// Both.
  void create_def_tar_leaf(const BandwidthSettings& def);

  /// Sends every packet to the class that its mark names.
  void add_fw_filter(unsigned prio);

  /// Makes the IPv6 classifiers of a path, in the place of those that stand; nothing where it has
  /// none.
  void remake_ip6_classifiers(const MarkPath& path);

  /// Class and leaf qdisc of one tariff; nothing without addresses.
  void create_fw_leaf(const TariffDirSettings& t, const std::vector<std::uint32_t>& addresses);
  void _create_fw_leaves(const GlobalSettings& g, const TariffSet& set);
  /// The same for every tariff, the root class's burst raised to the largest of theirs; nothing
  /// when the device does not exist or the direction is blocked or has no speed.
  void create_fw_leaves(const GlobalSettings& g, const TariffSet& set);

  /// Deletes leaf qdisc and class of one tariff; nothing without addresses or with `remove` false.
  void delete_fw_leaf(const TariffDirSettings& t, bool remove,
                      const std::vector<std::uint32_t>& addresses);
  /// Deletes those of `removed` and makes those of `added`, with the same exceptions.
  void update_fw_leaves(const GlobalSettings& g, const TariffSet& removed, const TariffSet& added,
                        bool remove);
};

}  // namespace quenby
