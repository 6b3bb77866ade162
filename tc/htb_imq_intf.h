#pragma once

#include <string>
#include <vector>

#include "tc/address_tree.h"
#include "tc/htb_intf.h"

namespace quenby {

/// One direction of the IMQ device, which both directions share: the upload object makes the device
/// and its HTB root, the download object adds to it. Packets are classified by address.
class HtbImqIntf : public HtbIntf {
 public:
  using HtbIntf::class_op;
  using HtbIntf::create_leaves;

  HtbImqIntf(bool ingress, SocketPtr& sock, CachePtr& link_cache);

  const char* kind() const override { return "imq"; }
  void setup(const DeviceTree& tree) override;
  void teardown(const GlobalSet& set) override;
  void create_leaves(const GlobalSettings& g, const TariffSet& set) override;
  /// Addresses need no filter of the kind that this remakes.
  void update_filter(const GlobalSettings& g, std::int64_t speed, bool redirect,
                     bool restore_mark) override;
  std::string& fill_fw_rules(const GlobalSet& set, std::string& list) const override;
  void def_qdisc_op(const BandwidthSettings& def, htb_action action) override;
  void class_op(const TariffDirSettings& t, htb_action action) override;
  void def_class_op(const BandwidthSettings& def, htb_action action) override;

  /// The download object prints both directions.
  void stat_classes(nl_cache* cache, rtnl_class* filter, const TariffConfig& cfg) const override;
  bool stands(const DeviceTree& tree) const override;
  U32Inventory standing_filters() const override;

  /// The first level of the address tree, where some tariff or the line itself is shaped.
  void create_base_ht(const GlobalSettings& g, const TariffSet& set);
  /// Class, address filters and leaf qdisc of one tariff; nothing without addresses. With
  /// `tolerate` a hash table that exists already is no failure.
  void create_ht_leaf(const TariffDirSettings& t, AddressTree& tree,
                      const std::vector<std::uint32_t>& addresses, bool tolerate);
  /// The same for every tariff, the root class's burst raised to the largest of theirs; nothing
  /// when the direction has no speed and so no root class.
  void create_ht_leaves(const GlobalSettings& g, const TariffSet& set);

  /// Deletes one tariff's leaf qdisc, address filters and class; nothing without addresses or with
  /// `remove` false.
  void delete_ht_leaf(const TariffDirSettings& t, bool remove,
                      const std::vector<std::uint32_t>& addresses);
  /// Deletes those of `removed` and makes those of `added`.
  void update_ht_leaves(const GlobalSettings& g, const TariffSet& removed, const TariffSet& added,
                        bool remove);

 protected:
  void change_path(const MarkPath& path) override;
};

/// A variant that takes incoming packets to the IMQ device by a rule of its own.
class HtbIngrImqIntf : public HtbImqIntf {
 public:
  using HtbImqIntf::HtbImqIntf;
  std::string& fill_fw_rules(const GlobalSet& set, std::string& list) const override;
};

}  // namespace quenby
