#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <variant>
#include <vector>

#include "ctl/shaping.h"

/// Addresses of both families, and what holds them.
namespace quenby {

/// In network order.
using Address = std::variant<std::uint32_t, Ip6Address>;

/// Nothing when the text is no address of either family. An IPv4-mapped one is of IPv4.
std::optional<Address> parse_address(const std::string& text);

/// As inet_ntop writes it.
std::string to_text(const Address& address);

/// Whether an address is one of a prefix's.
bool holds(const Ip6Prefix& prefix, const Ip6Address& address);

/// The longest of `longest`, which may be null, and of those prefixes that hold the address; of
/// several as long the first. Null where there is none.
const Ip6Prefix* longest_of(const std::vector<Ip6Prefix>& prefixes, const Ip6Address& address,
                            const Ip6Prefix* longest);

/// What a tariff has of an address: itself, or the prefix that holds it.
using Holder = std::variant<std::uint32_t, Ip6Prefix>;

/// What holds an address: of all prefixes of the classes the longest, as the kernel finds it.
/// Nothing when no class has one.
std::optional<Holder> find_holder(const Shaping& shaping, const Address& address);

/// Whether a class's tariff has it.
bool has(const PlannedClass& planned, const Holder& holder);

}  // namespace quenby
