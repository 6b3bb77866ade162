#include "ctl/address.h"

#include <arpa/inet.h>

#include <algorithm>
#include <cstring>

#include "tc/address_text.h"

namespace quenby {
namespace {

template <typename T>
bool contains(const std::vector<T>& list, const T& wanted) {
  return std::find(list.begin(), list.end(), wanted) != list.end();
}

std::optional<Holder> find_prefix(const Shaping& shaping, const Ip6Address& address) {
  const Ip6Prefix* longest = nullptr;
  for (const ShapedClass& one : shaping.classes)
    longest = longest_of(one.planned.prefixes, address, longest);
  if (longest == nullptr) return std::nullopt;
  return *longest;
}

bool has_address(const Shaping& shaping, std::uint32_t address) {
  return std::any_of(
      shaping.classes.begin(), shaping.classes.end(),
      [address](const ShapedClass& one) { return contains(one.planned.addresses, address); });
}

// What an IPv4 address looks like to a program that knows IPv6 alone.
std::uint32_t mapped_ip4(const Ip6Address& address) {
  std::uint32_t mapped = 0;
  static_assert(sizeof(address) == sizeof(in6_addr));
  std::memcpy(&mapped, address.data() + sizeof(in6_addr) - sizeof(mapped), sizeof(mapped));
  return mapped;
}

bool is_mapped_ip4(const Ip6Address& address) {
  in6_addr form{};
  std::memcpy(&form, address.data(), sizeof(form));
  return IN6_IS_ADDR_V4MAPPED(&form);
}

}  // namespace

std::optional<Address> parse_address(const std::string& text) {
  in_addr address{};
  if (inet_pton(AF_INET, text.c_str(), &address) == 1) return Address(address.s_addr);
  Ip6Address address6{};
  if (inet_pton(AF_INET6, text.c_str(), address6.data()) != 1) return std::nullopt;
  if (is_mapped_ip4(address6)) return Address(mapped_ip4(address6));
  return Address(address6);
}

std::string to_text(const Address& address) {
  if (const auto* const address6 = std::get_if<Ip6Address>(&address))
    return to_text(Ip6Prefix{*address6});
  return address_text(std::get<std::uint32_t>(address));
}

bool holds(const Ip6Prefix& prefix, const Ip6Address& address) {
  return masked(address, prefix.length) == prefix.address;
}

const Ip6Prefix* longest_of(const std::vector<Ip6Prefix>& prefixes, const Ip6Address& address,
                            const Ip6Prefix* longest) {
  for (const Ip6Prefix& prefix : prefixes) {
    const bool is_longer = longest == nullptr || prefix.length > longest->length;
    if (is_longer && holds(prefix, address)) longest = &prefix;
  }
  return longest;
}

std::optional<Holder> find_holder(const Shaping& shaping, const Address& address) {
  if (const auto* const address6 = std::get_if<Ip6Address>(&address))
    return find_prefix(shaping, *address6);
  const std::uint32_t address4 = std::get<std::uint32_t>(address);
  if (!has_address(shaping, address4)) return std::nullopt;
  return address4;
}

bool has(const PlannedClass& planned, const Holder& holder) {
  if (const auto* const prefix = std::get_if<Ip6Prefix>(&holder))
    return contains(planned.prefixes, *prefix);
  return contains(planned.addresses, std::get<std::uint32_t>(holder));
}

}  // namespace quenby
