#pragma once

#include <linux/pkt_sched.h>

#include <cstdint>
#include <functional>
#include <string>

#include "model/global_set.h"
#include "model/tariff_config.h"
#include "tc/handles.h"
#include "tc/htb_action.h"
#include "tc/nl_types.h"
#include "tc/u32_filter.h"

namespace quenby {

/// One shaped device in one direction: every traffic-control object on it is made, changed and
/// deleted here, over the socket and link cache that the shaper owns.
///
/// Every failed request ends the process with "Error: ", the device's name, " failed to " and the
/// action; deleting what is gone already is no failure. Earlier requests stay in effect. What to
/// send is worked out by the functions of the other files of this folder, which need no socket.
///
/// Operations named after a class or leaf take class numbers; `cid` maps them to this device.
class HtbIntf {
 public:
  /// Fills in a qdisc object's parameters from the settings of its class.
  using QdiscSetup = std::function<void(const BandwidthSettings&, rtnl_qdisc*)>;

  /// Looks the device up in the link cache. Keeps references to both owners.
  HtbIntf(const std::string& name, bool ingress, SocketPtr& sock, CachePtr& link_cache);
  virtual ~HtbIntf() = default;
  HtbIntf(const HtbIntf&) = delete;
  HtbIntf& operator=(const HtbIntf&) = delete;

  /// The libnl link type of a device that the program makes itself; empty for any other.
  virtual const char* kind() const = 0;

  /// Builds the device's base structure: link, root qdisc, root, default and default-tariff
  /// classes, filters. `set` is the configuration after rate resolution (the root class's burst is
  /// stored in it), `given` the one before; `tariffs` tells whether there are any; `link_speed` in
  /// bytes per second.
  virtual void setup(GlobalSet& set, const GlobalSet& given, bool tariffs,
                     std::int64_t link_speed) = 0;
  /// Removes what `setup` built.
  virtual void teardown(const GlobalSet& set) = 0;
  /// Makes the tariffs' classes, leaf qdiscs and, on the IMQ device, filters. `g` and `set` after
  /// rate resolution.
  virtual void create_leaves(const GlobalSettings& g, const TariffSet& set) = 0;
  /// Deletes what the tariffs of `removed` (as they were stored) have on the device, unless
  /// `remove` is false, and makes what those of `added` (after rate resolution) need.
  virtual void update_leaves(const GlobalSettings& g, const TariffSet& removed,
                             const TariffSet& added, bool remove) = 0;
  /// Remakes the direction's mark classifier and redirection. `redirect` tells that the line is
  /// slower than the link, `restore_mark` that packets carry marks; `speed` is the direction's
  /// configured speed in bytes per second.
  virtual void update_filter(const GlobalSettings& g, std::int64_t speed, bool redirect,
                             bool restore_mark) = 0;
  /// Appends the device's firewall rules to a joined command list and returns it.
  virtual std::string& fill_fw_rules(const GlobalSet& set, std::string& list) const = 0;

  // The handle scheme; see tc/handles.h.
  virtual unsigned root_cid() const { return cid(kRootClass); }
  virtual unsigned def_cid() const { return kDefaultClass; }
  virtual unsigned cid(unsigned number) const { return class_minor(scheme(), number); }
  virtual unsigned base_ht_id() const { return def_cid(); }
  virtual unsigned base_ht_node() const { return 1; }
  virtual std::uint32_t qhandle(unsigned number) const { return leaf_handle(scheme(), number); }
  std::uint32_t chandle(unsigned number) const { return class_handle(cid(number)); }

  /// The fq_codel leaf under the default class.
  virtual void def_qdisc_op(const BandwidthSettings& def, htb_action action) = 0;
  /// One direction's class of a tariff.
  virtual void class_op(const TariffDirSettings& t, htb_action action) = 0;
  /// The default class, which has no guarantee of its own. Nothing is done when its speed was never
  /// set, except to delete it.
  virtual void def_class_op(const BandwidthSettings& def, htb_action action) = 0;

  /// Prints the classes of `cache` that concern an operator; `filter` is an empty class object of
  /// the device. `cfg` has its numbers in ascending order.
  virtual void stat_classes(nl_cache* cache, rtnl_class* filter, const TariffConfig& cfg) const = 0;

  bool ingress() const { return ingress_; }
  const std::string& name() const { return name_; }

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
  /// Makes the root class and stores its burst in `root`. -1, with no request sent, when the speed
  /// was never set; otherwise the burst.
  std::int64_t create_root_leaf(BandwidthSettings& root);
  /// The same for the root class that is there already; nothing when the device does not exist.
  void update_root_leaf(BandwidthSettings& root);
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

  /// Deletes the u32 filter of this handle; one that is gone already is no failure.
  void del_ht_filter(std::uint32_t handle, unsigned prio);

  /// The same for one in the ingress qdisc of whatever device.
  void del_redirection(int ifindex, std::uint32_t handle);

  /// Prints one line a class: direction and tariff, packets, bytes, bytes/s, packets/s, drops and
  /// overlimits. Nothing when the device does not exist. `cfg` has its numbers in ascending order.
  void class_stat(const TariffConfig& cfg) const;

  // What a direction wants and what stands are two questions. `g` after rate resolution.

  /// Whether the configuration gives this direction an HTB tree, whatever the kernel holds.
  virtual bool wants_tree(const GlobalSettings& g) const = 0;
  /// Whether every object stands that a change of this direction relies on. Each look is one
  /// request; a doubt is a no.
  virtual bool stands(const GlobalSettings& g) const = 0;
  /// Whether there is a device to put the wanted tree on.
  bool has_tree(const GlobalSettings& g) const { return has_link() && wants_tree(g); }

  /// Appends the commands that remove all our rules; only the egress object of a pair writes them.
  void fill_clean_fw_rules(std::string& list) const;

 protected:
  virtual HandleScheme scheme() const = 0;

  bool has_link() const { return link_ != nullptr; }
  /// Looks the device up again, after another object may have made it.
  void find_link();

  /// The default or default-tariff class, with the rule for never-set speeds.
  void default_class_op(const BandwidthSettings& def, unsigned number, std::int64_t rate,
                        htb_action action);
  /// The fq_codel leaf under one of those classes.
  void default_leaf_op(const BandwidthSettings& def, unsigned number, htb_action action);
  /// One direction's class of a tariff, under the root class.
  void tariff_class_op(const TariffDirSettings& t, htb_action action);

  /// A classifier object for IPv4 under the HTB qdisc; `kind` may be null.
  ClsPtr new_cls(const char* kind, unsigned prio) const;
  /// The classifiers under the HTB qdisc; failure ends the process.
  CachePtr alloc_cls_cache() const;
  nl_sock* sock() const { return sock_.get(); }
  nl_cache* links() const { return link_cache_.get(); }
  /// 0 while the device does not exist.
  int ifindex() const;
  /// The interface index of another device, 0 when there is none of this name.
  int ifindex_of(const std::string& name) const;

  /// Whether the device has this very qdisc. Does not list any: a list has the leaves of all
  /// devices in it.
  bool qdisc_stands(const char* kind, std::uint32_t handle, std::uint32_t parent) const;
  bool htb_stands() const { return qdisc_stands("htb", kHtbHandle, TC_H_ROOT); }
  /// Deletes this very qdisc of whatever device; one that is gone already is no failure.
  void del_qdisc_of(int ifindex, const std::string& kind, std::uint32_t handle,
                    std::uint32_t parent);

  [[noreturn]] void nl_error(const std::string& what, int code) const;
  /// Fatal for a negative result unless `ignore`.
  void chk_nl_error(const std::string& what, int code, bool ignore) const;

 private:
  // `kind` may be null.
  QdiscPtr new_qdisc(const char* kind) const;
  // Takes a leaf of this handle out of the way when it stands. A libnl code.
  int add_qdisc(rtnl_qdisc* qdisc);
  ClassPtr new_class(const char* kind) const;
  void tariff_leaf_op(const char* kind, const TariffDirSettings& t, htb_action action,
                      const QdiscSetup& setup);
  void attach(rtnl_tc* object, const char* kind) const;
  int send_u32_filter(const U32Filter& filter, unsigned prio);
  QdiscPtr root_qdisc() const;
  LinkPtr get_link(const std::string& name) const;

  bool ingress_;
  std::string name_;
  SocketPtr& sock_;
  CachePtr& link_cache_;
  // Null while the device does not exist.
  LinkPtr link_;
};

}  // namespace quenby
