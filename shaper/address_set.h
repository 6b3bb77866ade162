#pragma once

#include <cstdint>
#include <vector>

#include "model/tariff_set.h"
#include "tc/nl_types.h"

/// The kernel's IP set "kavo_opt_shaper" (hash:ip with packet-mark data), which gives every
/// tariff's address the mark of the tariff's class. Spoken to over nfnetlink; the attributes are
/// those of linux/netfilter/ipset/ip_set.h:
///
///   create  protocol, name, type name, revision, family, data { cadt flags }
///   flush   protocol, name
///   add     protocol, name, data { ip { ipv4 }, skbmark, lineno }
///   del     protocol, name, data { ip { ipv4 }, lineno }
///   test    as del
///
/// Whatever is refused, by libnl or by the kernel, ends the process, but for the test.
namespace quenby {

/// One entry: an address in network order, and the mark and mask in host order.
struct AddressSetEntry {
  std::uint32_t address = 0;
  std::uint32_t mark = 0;
  std::uint32_t mask = 0;

  bool operator==(const AddressSetEntry&) const = default;
};

/// The entry for an address of class number `number`, of which 14 bits are used.
AddressSetEntry address_set_entry(std::uint32_t address, std::uint64_t number);

/// The entries of every tariff, in the order of the tariffs and of their addresses.
std::vector<AddressSetEntry> address_set_entries(const TariffSet& set);

/// Makes the set; one of this name and type that exists already is no failure.
void create_address_set(const SocketPtr& sock);
/// Takes every entry out. The set stays, as a firewall rule may name it.
void flush_address_set(const SocketPtr& sock);
/// Adds an entry or changes the mark of the one that the address has.
void add_address(const SocketPtr& sock, const AddressSetEntry& entry);
/// Whether the set has an entry for this address (network order); a doubt is a no.
bool has_address(const SocketPtr& sock, std::uint32_t address);
/// Takes an address (network order) out.
void delete_address(const SocketPtr& sock, std::uint32_t address);

}  // namespace quenby
