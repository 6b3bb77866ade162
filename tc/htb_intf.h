#pragma once

#include <cstdint>
#include <functional>
#include <string>

#include "model/global_set.h"
#include "model/tariff_config.h"
#include "tc/device.h"
#include "tc/device_change.h"
#include "tc/device_tree.h"
#include "tc/htb_action.h"
#include "tc/nl_types.h"

namespace quenby {

/// One shaped device in one direction, over the socket and link cache that the shaper owns. What it
/// holds is decided as values (tc/device_tree.h, tc/device_change.h); its operations turn them into
/// requests (tc/links.h, tc/qdiscs.h, tc/classes.h, tc/filters.h).
///
/// Every failed request ends the process with "Error: ", the device's name, " failed to " and the
/// action; deleting what is gone already is no failure. Earlier requests stay in effect.
///
/// Operations named after a class or leaf take class numbers; `cid` maps them to this device.
class HtbIntf {
 public:
  /// Fills in a qdisc object's parameters from the settings of its class.
  using QdiscSetup = std::function<void(const BandwidthSettings&, rtnl_qdisc*)>;

  /// Looks the device up in the link cache. Keeps references to both owners.
  HtbIntf(const std::string& name, const Side& side, SocketPtr& sock, CachePtr& link_cache);
  virtual ~HtbIntf() = default;
  HtbIntf(const HtbIntf&) = delete;
  HtbIntf& operator=(const HtbIntf&) = delete;

  bool ingress() const { return side_.way == Direction::download; }
  const std::string& name() const { return name_; }
  const Side& side() const { return side_; }

  /// The libnl link type of a device that the program makes itself; empty for any other.
  virtual const char* kind() const = 0;

  // Whole trees. Everything is made in the order in which the values stand.

  /// Builds the device's base structure: link, root qdisc, classes of the line, filters. Takes the
  /// root qdisc that stands away first.
  virtual void setup(const DeviceTree& tree) = 0;
  /// Removes what `setup` built.
  virtual void teardown(const GlobalSet& set) = 0;
  /// Makes the tariffs' classes, leaf qdiscs and, on the IMQ device, filters.
  void create_leaves(const DeviceTree& tree);
  /// Changes the tree that stands.
  void change(const DeviceChange& change);
  /// Whether every object stands that a change of this tree relies on. Each look is one request; a
  /// doubt is a no.
  virtual bool stands(const DeviceTree& tree) const = 0;

  /// Whether this line gives its direction an HTB tree and there is a device to put it on.
  virtual bool has_tree(const ResolvedLine& line) const;
  /// The filters by which this device classifies, where a change has to know them.
  virtual U32Inventory standing_filters() const { return U32Inventory(); }

  // The same for tariffs that a caller names, with the rates that their records state.

  /// The branches of `set`; the root class's burst is raised to the largest of theirs.
  virtual void create_leaves(const GlobalSettings& g, const TariffSet& set) = 0;
  /// Deletes what the tariffs of `removed` (as they were stored) have on the device, unless
  /// `remove` is false, and makes what those of `added` need. The root class's burst as above.
  void update_leaves(const GlobalSettings& g, const TariffSet& removed, const TariffSet& added,
                     bool remove);
  /// Remakes the direction's mark classifier and redirection. `restore_mark` tells that packets
  /// carry marks. The speed never matters, and `redirect` only where `restore_mark` is false, which
  /// no caller combines.
  virtual void update_filter(const GlobalSettings& g, std::int64_t speed, bool redirect,
                             bool restore_mark) = 0;
  /// Appends the device's firewall rules to a joined command list and returns it.
  virtual std::string& fill_fw_rules(const GlobalSet& set, std::string& list) const = 0;
  /// Appends the commands that remove all our rules; only the egress object of a pair writes them.
  void fill_clean_fw_rules(std::string& list) const;

  // The handle scheme; see tc/handles.h.
  unsigned root_cid() const { return cid(kRootClass); }
  unsigned def_cid() const { return kDefaultClass; }
  unsigned cid(unsigned number) const { return class_minor(side_.scheme, number); }
  unsigned base_ht_id() const { return base_table(side_.scheme).id; }
  unsigned base_ht_node() const { return base_link(side_.scheme).node; }
  std::uint32_t qhandle(unsigned number) const { return leaf_handle(side_.scheme, number); }
  std::uint32_t chandle(unsigned number) const { return class_handle(cid(number)); }

  // Links.

  /// Whether a device of this name exists.
  bool link_exists(const std::string& name) const;
  /// Makes this object's virtual device, up and with the queue that shaping wants.
  void link_add();
  /// Deletes it; does nothing when the device does not exist.
  void link_del();

  // Qdiscs.

  /// Adds the HTB root. With `with_default` unclassified packets go to the default class, without
  /// it they pass unshaped.
  void root_qdisc_add(bool with_default);
  /// Deletes the device's root qdisc, unless it is the kernel's own. Never fatal but when the
  /// kernel cannot list its qdiscs.
  void root_qdisc_del();
  /// Replaces the root qdisc by an empty HTB root, making the device first if it does not exist.
  void init_qdisc(const GlobalSet& g);
  /// Adds or deletes one qdisc; any other action is fatal, as a leaf is never replaced in place.
  /// A leaf that stands already is no obstacle, of whatever kind it is.
  /// Handle and parent as in tc/handles.h.
  void qdisc_op(const std::string& kind, std::uint32_t handle, std::uint32_t parent,
                const BandwidthSettings& s, htb_action action, const QdiscSetup& setup);

  // Classes.

  /// Makes, changes or deletes one class. `cid` and `parent` are minors (0: the root qdisc), `ceil`
  /// and `rate` bytes per second, `burst` bytes; a burst of 0 is computed and stored back.
  void class_op(unsigned cid, unsigned parent, std::int64_t ceil, std::int64_t rate,
                std::int64_t& burst, htb_action action);
  /// One direction's class of a tariff.
  virtual void class_op(const TariffDirSettings& t, htb_action action) = 0;
  /// The default class, which has no guarantee of its own. Nothing is done when its speed was never
  /// set, except to delete it.
  virtual void def_class_op(const BandwidthSettings& def, htb_action action) = 0;
  /// Makes the root class. -1, with no request sent, when the speed was never set; otherwise the
  /// burst.
  std::int64_t create_root_leaf(const BandwidthSettings& root);
  /// The same for the root class that is there already; nothing when the device does not exist.
  void update_root_leaf(const BandwidthSettings& root);
  /// Gives the root class `burst` bytes when its own speed calls for less.
  void update_root_leaf_burst(const BandwidthSettings& root, std::int64_t burst);

  // Leaves.

  void pfifo_op(const TariffDirSettings& t, htb_action action);
  void sfq_op(const TariffDirSettings& t, htb_action action);
  void fq_codel_op(const TariffDirSettings& t, htb_action action);
  /// The tariff's leaf qdisc of the kind that it names; nothing for any other kind.
  void tariff_qdisc_op(const TariffDirSettings& tariff, htb_action action);
  void create_qdisc(const TariffDirSettings& tariff);
  void delete_qdisc(const TariffDirSettings& tariff);
  /// The fq_codel leaf under the default class.
  virtual void def_qdisc_op(const BandwidthSettings& def, htb_action action) = 0;
  /// The default class with its leaf.
  void create_def_leaf(const BandwidthSettings& def);

  // Classifiers.

  /// Adds a u32 hash table; with `tolerate` one that exists already is no failure.
  void add_ht(const U32Table& table, unsigned prio, bool tolerate);
  /// Adds a u32 filter. Mainline kernels refuse a handle whose bucket and node are both 0; there
  /// the kernel chooses the node.
  void add_ht_filter(const U32Filter& filter, unsigned prio);
  /// Deletes the classifiers of priority `prio` and, unless null, of `kind` under `parent_major`:0
  /// of `dev`. Nothing is asked when the device does not exist.
  void del_filter(const std::string& dev, std::uint32_t parent_major, unsigned prio,
                  const char* kind);

  // Statistics.

  /// Prints one line per class: direction and tariff, packets, bytes, bytes/s, packets/s, drops and
  /// overlimits. Nothing when the device does not exist. `cfg` has its numbers in ascending order.
  void class_stat(const TariffConfig& cfg) const;
  /// Prints the classes of `cache` that concern an operator; `filter` is an empty class object of
  /// the device. `cfg` has its numbers in ascending order.
  virtual void stat_classes(nl_cache* cache, rtnl_class* filter, const TariffConfig& cfg) const = 0;

  [[noreturn]] void nl_error(const std::string& what, int code) const;
  /// Fatal for a negative result unless `ignore`.
  void chk_nl_error(const std::string& what, int code, bool ignore) const;

 protected:
  /// This device, or another one by its index, as requests see it.
  Device device() const;
  Device device(int ifindex) const;
  bool has_link() const { return link_ != nullptr; }
  /// Looks the device up again, after another object may have made it.
  void find_link();
  nl_cache* links() const { return link_cache_.get(); }

  /// Takes the root qdisc away, or makes the device if it does not exist.
  void init_device();
  /// Adds or deletes a qdisc whose values are known.
  void qdisc_op(const Qdisc& qdisc, htb_action action);
  void class_op(const HtbClass& values, htb_action action);
  /// A tariff's class, whose direction the caller has looked at.
  void tariff_class_op(const TariffDirSettings& t, htb_action action);
  /// The default or default-tariff class, with the rule for never-set speeds.
  void default_class_op(const BandwidthSettings& def, unsigned number, std::int64_t rate,
                        htb_action action);
  /// The fq_codel leaf under one of those classes.
  void default_leaf_op(const BandwidthSettings& def, unsigned number, htb_action action);
  /// Remakes how packets come to the classes.
  virtual void change_path(const MarkPath& path) = 0;

 private:
  void leaf_op(const TariffDirSettings& t, int kind, htb_action action);

  std::string name_;
  Side side_;
  SocketPtr& sock_;
  CachePtr& link_cache_;
  // Null while the device does not exist.
  LinkPtr link_;
};

}  // namespace quenby
