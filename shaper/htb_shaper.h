#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "model/global_set.h"
#include "model/tariff_config.h"
#include "model/tariff_set.h"
#include "shaper/address_set.h"
#include "shaper/connections.h"
#include "shaper/session.h"
#include "shaper/tariff_change.h"
#include "tc/htb_intf.h"
#include "tc/nl_types.h"

namespace quenby {

/// The one object through which commands change the kernel's shaping state. It owns the netlink
/// sockets and the link cache and drives the two shaped devices, the address set, the firewall and
/// packet steering in the order that keeps traffic flowing.
///
/// Any failure ends the process; nothing is rolled back, and the next `clear` removes what was
/// made.
class HtbShaper {
 public:
  HtbShaper() : HtbShaper(open_session()) {}
  explicit HtbShaper(Session session) : session_(std::move(session)) {}

  /// Builds everything. Removes nothing that is installed already but the program's own firewall
  /// rules and the devices' root qdiscs.
  void create(GlobalSet set, TariffSet tariffs);
  /// Removes everything.
  void clear(const GlobalSet& set);

  /// Takes the global settings away: removes everything and builds the tariffs alone, on the IMQ
  /// device.
  void del_global(const GlobalSet& set, const TariffConfig& tariffs);
  /// Prints the class counters of both directions. `tariffs` has its numbers in ascending order.
  void class_stat(const GlobalSet& set, const TariffConfig& tariffs);

  // Changes while shaping runs. `current` is what the kernel holds now; a changed tariff is in
  // `removed` (its old record) and in `added` (its new one). All sets ordered by name, rates as
  // configured.

  /// Touches the changed tariffs alone where that gives the same as rebuilding everything.
  void update_tariffs(GlobalSet set, const TariffSet& current, const TariffSet& removed,
                      const TariffSet& added);
  void add_tariffs(GlobalSet set, const TariffSet& current, const TariffSet& added);
  void del_tariffs(GlobalSet set, const TariffSet& current, const TariffSet& removed);

  /// Whether the kernel holds what a change in place relies on when `settings` are what it was
  /// given last: root qdiscs, each direction's last class, the redirection, the sets' last entries.
  /// A doubt is a no.
  bool everything_stands(const ResolvedSettings& settings);

  /// One direction of such a change, with the rates that the records state: those of `settings` and
  /// `added`, and of `previous`, the direction's settings before the change. `configured` is its
  /// speed as configured; `remove` is false when there is nothing to delete. `burst` in bytes is
  /// what the root class has to cover. Speeds in bytes per second. The link's speed never matters:
  /// packets carry marks wherever there are tariffs.
  void update_intf(bool ingress, const GlobalSettings& settings, const TariffSet& added,
                   const TariffSet& removed, const BandwidthSettings& previous,
                   std::int64_t configured, bool remove, std::int64_t link_speed,
                   std::int64_t burst = 0);

  // The address set.

  void create_ipset();
  /// Empties the set, which stays.
  void delete_ipset();
  /// `address` in network order.
  void add_ipset_item(std::uint32_t address, std::uint64_t number);
  void del_ipset_item(std::uint32_t address);
  void add_ipset_tariffs(const TariffSet& set);
  void del_ipset_tariffs(const TariffSet& set);

  // Packet steering of the WAN port, on boards that have it.

  static void set_rps(const GlobalSet& set);
  static void clean_rps(const GlobalSet& set);

 private:
  struct Devices {
    std::unique_ptr<HtbIntf> upload;
    std::unique_ptr<HtbIntf> download;

    HtbIntf& at(Direction way) const { return way == Direction::download ? *download : *upload; }
  };

  struct DeviceChanges {
    DeviceChange upload;
    DeviceChange download;

    const DeviceChange& at(Direction way) const {
      return way == Direction::download ? download : upload;
    }
  };

  std::unique_ptr<HtbIntf> device(const GlobalSettings& settings, Direction way);
  Devices devices(const GlobalSettings& settings);
  /// Takes our rules out of the firewall; with `drop_chain` the drop chain is emptied too.
  static void clean_rules(const Devices& devices, bool drop_chain);
  /// What comes before the first IPv6 object: the note, a firewall without rules of ours, the set.
  void begin_ip6(bool drop_chain);
  /// Takes our IPv6 rules and entries away, and the note of them; false when a command failed.
  bool clear_ip6();
  /// Whether there is a device of the configured WAN name.
  bool link_exists(const GlobalSet& set) const;

  template <typename Key>
  void add_ipset_entries(const std::vector<SetEntry<Key>>& entries) {
    for (const SetEntry<Key>& entry : entries) add_address(session_.netfilter, entry);
  }
  template <typename Key>
  void del_ipset_entries(const std::vector<SetEntry<Key>>& entries) {
    for (const SetEntry<Key>& entry : entries) delete_address(session_.netfilter, entry.address);
  }
  /// Gives live connections that the filter picks the marks that `tariffs` give their addresses.
  /// Comes after every change of the set, so that no connection begins with an old mark any more.
  void mend_connections(const TariffSet& tariffs, bool ipv6, const MarkFilter& filter);
  void mend_changed(const TariffChange& change, const TariffSet& removed, const TariffSet& added);
  void keep_line_only(const TariffChange& change);
  /// What a change in place comes to on both devices.
  DeviceChanges device_changes(const TariffChange& change, const TariffSet& removed);
  static DeviceChange change_of(const HtbIntf& intf, const LineChange& line,
                                const TariffDifference& tariffs);

  Session session_;
};

}  // namespace quenby
