#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "model/family.h"
#include "model/tariff_set.h"
#include "tc/nl_types.h"

/// The kernel's IP sets "kavo_opt_shaper" (hash:ip with packet-mark data), which gives every
/// tariff's address the mark of the tariff's class, and "kavo_opt_shaper6" (hash:net), which does
/// so for IPv6 prefixes, the longest first. Spoken to over nfnetlink; the attributes are those of
/// linux/netfilter/ipset/ip_set.h:
///
///   create  protocol, name, type name, revision, family, data { cadt flags }
///   flush   protocol, name
///   add     protocol, name, data { ip { ipv4 }, skbmark, lineno }
///   del     protocol, name, data { ip { ipv4 }, lineno }
///           with a prefix: ip { ipv6 }, cidr
///   test    as del
///   list    protocol, name
///
/// Whatever is refused, by libnl or by the kernel, ends the process, but for the test.
namespace quenby {

/// One entry: what the set of its family holds, an IPv4 address in network order or a prefix of
/// IPv6, and the mark and mask in host order.
template <typename Key>
struct SetEntry {
  Key address{};
  std::uint32_t mark = 0;
  std::uint32_t mask = 0;

  bool operator==(const SetEntry&) const = default;
};

using AddressSetEntry = SetEntry<std::uint32_t>;
using PrefixSetEntry = SetEntry<Ip6Prefix>;

/// The entry for an address of class number `number`, of which 14 bits are used.
AddressSetEntry address_set_entry(std::uint32_t address, std::uint64_t number);
PrefixSetEntry address_set_entry(const Ip6Prefix& prefix, std::uint64_t number);

/// The entries of every tariff, in the order of the tariffs and of their addresses.
std::vector<AddressSetEntry> address_set_entries(const TariffSet& set);
std::vector<PrefixSetEntry> prefix_set_entries(const TariffSet& set);

/// Makes the set; one of this name and type that exists already is no failure.
void create_address_set(const SocketPtr& sock, Family family = Family::ipv4);
/// Takes every entry out. The set stays, as a firewall rule may name it.
void flush_address_set(const SocketPtr& sock);
/// The same for prefixes; a set that is not there is empty.
void flush_prefix_set(const SocketPtr& sock);
/// Adds an entry or changes the mark of the one that the address has.
void add_address(const SocketPtr& sock, const AddressSetEntry& entry);
void add_address(const SocketPtr& sock, const PrefixSetEntry& entry);
/// Whether the set has an entry for this address (network order), or this very prefix; a doubt is a
/// no.
bool has_address(const SocketPtr& sock, std::uint32_t address);
bool has_address(const SocketPtr& sock, const Ip6Prefix& prefix);

/// A set as the kernel lists it.
template <typename Key>
struct ListedSet {
  std::string type;
  std::vector<SetEntry<Key>> entries;

  bool operator==(const ListedSet&) const = default;

  /// Whether it is of the type that `create_address_set` makes.
  bool is_of_our_type() const;
};

using StandingSet = ListedSet<std::uint32_t>;
using StandingPrefixSet = ListedSet<Ip6Prefix>;

/// Nothing when there is none, as on a kernel that knows no sets at all.
std::optional<StandingSet> list_address_set(const SocketPtr& sock);
std::optional<StandingPrefixSet> list_prefix_set(const SocketPtr& sock);

/// Takes an address (network order), or this very prefix, out.
void delete_address(const SocketPtr& sock, std::uint32_t address);
void delete_address(const SocketPtr& sock, const Ip6Prefix& prefix);

}  // namespace quenby
