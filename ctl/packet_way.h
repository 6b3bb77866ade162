#pragma once

#include <optional>
#include <string>

#include "ctl/shaping.h"
#include "model/resolved_settings.h"

/// Which class an address's packets take, as the firewall's rules and the trees lead them.
namespace quenby {

enum class Passing {
  in_class,
  unshaped,
  dropped,
  /// There is no WAN interface to pass.
  no_interface
};

/// One direction of an address's packets.
struct PacketWay {
  Direction way = Direction::upload;
  /// The interface that shapes the direction.
  std::string device;
  Passing passing = Passing::unshaped;
  /// The class that they take, where they take one. On the IMQ device both directions may take one
  /// of the download.
  std::optional<PlannedClass> taken{};
};

/// What the files come to on this router.
struct LineFacts {
  Shaping shaping;
  ResolvedSettings settings;

  bool by_mark() const { return shaping.has_wan.has_value(); }
  /// Whether the WAN interface that is named is not there.
  bool lacks_wan() const { return by_mark() && !*shaping.has_wan; }
};

/// What is known of an address.
struct PacketOwner {
  /// Whether the line shapes its family.
  bool shaped = true;
  /// Of IPv4, in network order.
  std::optional<std::uint32_t> address;
  /// The class number of the tariff that the address set names for it; nothing where none has it.
  std::optional<unsigned> number;
};

/// The mark that the firewall gives packets, and the connections that they begin. Nothing on the
/// IMQ device and where no upload passes, as it is on the way out that packets get one.
std::optional<std::uint32_t> packet_mark(const LineFacts& line, const PacketOwner& owner);

PacketWay packet_way(const LineFacts& line, const PacketOwner& owner, Direction way);

}  // namespace quenby
