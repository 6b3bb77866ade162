#include "model/ip6_prefix.h"

#include <arpa/inet.h>

#include <charconv>
#include <cstring>
#include <netinet/in.h>

namespace quenby {
namespace {

constexpr unsigned kByteBits = 8;

in6_addr as_in6(const Ip6Address& address) {
  in6_addr in{};
  std::memcpy(&in, address.data(), address.size());
  return in;
}

bool is_refused(const Ip6Address& address) {
  const in6_addr in = as_in6(address);
  return IN6_IS_ADDR_V4MAPPED(&in) || IN6_IS_ADDR_MULTICAST(&in) || IN6_IS_ADDR_UNSPECIFIED(&in) ||
         IN6_IS_ADDR_LINKLOCAL(&in);
}

std::optional<Ip6Address> parse_address(const std::string& text) {
  Ip6Address address{};
  if (inet_pton(AF_INET6, text.c_str(), address.data()) != 1) return std::nullopt;
  return address;
}

std::optional<unsigned> parse_length(const std::string& text) {
  unsigned length = 0;
  const char* const end = text.data() + text.size();
  const auto [rest, error] = std::from_chars(text.data(), end, length);
  if (error != std::errc() || rest != end || length < 1 || length > kIp6AddressBits)
    return std::nullopt;
  return length;
}

}  // namespace

Ip6Address masked(const Ip6Address& address, unsigned length) {
  Ip6Address kept{};
  const unsigned whole = length / kByteBits;
  std::memcpy(kept.data(), address.data(), whole);
  const unsigned rest = length % kByteBits;
  if (rest != 0) kept.at(whole) = static_cast<std::uint8_t>(address.at(whole) & (0xff00U >> rest));
  return kept;
}

std::optional<Ip6Prefix> parse_ip6_prefix(const std::string& text) {
  const std::size_t slash = text.find('/');
  const auto address = parse_address(text.substr(0, slash));
  const auto length =
      slash == std::string::npos ? kIp6AddressBits : parse_length(text.substr(slash + 1));
  if (!address || !length) return std::nullopt;
  const Ip6Prefix prefix{masked(*address, *length), static_cast<std::uint8_t>(*length)};
  // What is written has to be read again, so both forms count.
  if (is_refused(*address) || is_refused(prefix.address)) return std::nullopt;
  return prefix;
}

std::string to_text(const Ip6Prefix& prefix) {
  std::array<char, INET6_ADDRSTRLEN> text{};
  inet_ntop(AF_INET6, prefix.address.data(), text.data(), text.size());
  if (prefix.length == kIp6AddressBits) return text.data();
  return std::string(text.data()) + '/' + std::to_string(unsigned{prefix.length});
}

}  // namespace quenby
