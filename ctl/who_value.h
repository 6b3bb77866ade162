#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "ctl/address.h"
#include "ctl/packet_way.h"
#include "shaper/address_set.h"
#include "shaper/connections.h"
#include "tc/drift.h"

/// Whose an address is, as a value.
namespace quenby {

/// Open connections of an address that carry one mark.
struct MarkedConnections {
  std::uint32_t mark = 0;
  /// The tariff whose class that is; empty when nobody's.
  std::string tariff;
  std::size_t count = 0;
};

struct Who {
  Address address;
  /// Whether the line shapes its family.
  bool shaped = true;
  /// The longest prefix that holds it; nothing for IPv4, and where no tariff has it.
  std::optional<Ip6Prefix> prefix;
  /// The tariffs that have it, or this prefix, in the files, the one that it belongs to last.
  std::vector<std::string> tariffs;
  /// The class number of that tariff, or of the default tariff's class where it is in that one.
  std::optional<unsigned> number;
  /// Whether it is in the default tariff.
  bool in_default = false;
  /// What becomes of its packets, upload first.
  std::array<PacketWay, 2> ways;
  /// The mark that its packets are to have, where they get one.
  std::optional<std::uint32_t> mark;
  /// The mark in the address set; nothing when it is not in there.
  std::optional<std::uint32_t> set_mark;
  std::vector<MarkedConnections> connections;
  /// Where the kernel disagrees with the files, a line each.
  std::vector<std::string> problems;
  /// What mends them, each once.
  std::vector<std::string> remedies;
};

/// What is known of the router.
struct WhoFacts {
  LineFacts line;
  std::vector<Drift> drift;
  std::vector<AddressSetEntry> entries;
  std::vector<Connection> connections;
  /// Of IPv6; none where it is not shaped.
  std::vector<PrefixSetEntry> prefix_entries{};
  std::vector<Ip6Connection> ip6_connections{};
};

Who who_has(const Address& address, const WhoFacts& facts);

/// A mark and the tariff that has it, which is empty when nobody has.
std::string mark_text(std::uint32_t mark, const std::string& tariff);
/// The handle of a class's leaf, whether it has one or not.
std::uint32_t leaf_of(const PlannedClass& planned);

/// Several lines, of which all but the first are indented.
std::string to_text(const Who& who);

/// JSON; members as in the manual page.
std::string json_text(const std::vector<Who>& list);

}  // namespace quenby
