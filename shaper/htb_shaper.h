#pragma once

#include <cstdint>
#include <memory>

#include "model/global_set.h"
#include "model/tariff_config.h"
#include "model/tariff_set.h"
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
  HtbShaper();

  /// Builds everything. Removes nothing that is installed already but the program's own firewall
  /// rules and the devices' root qdiscs.
  void create(GlobalSet set, TariffSet tariffs);
  /// Removes everything.
  void clear(const GlobalSet& set);

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
  std::unique_ptr<HtbIntf> device(const GlobalSettings& settings, bool ingress);

  // Released in reverse order.
  SocketPtr route_;
  SocketPtr netfilter_;
  CachePtr links_;
};

}  // namespace quenby
