#include <cstdint>
#include <iostream>
#include <set>
#include <string_view>

#include "config/read_config.h"

// Tells whether `quenby --load` would accept the stored files, and where it would not. Looks at
// nothing but these files, changes nothing and takes no lock.
namespace quenby {
namespace {

enum Status { kAccepted = 0, kRefused = 1, kWrongCall = 2 };

void print(const GlobalSet& set) {
  std::cout << "wan=" << set.global.wan << '\n'
            << "enabled=" << (set.global.enabled ? "true" : "false") << '\n';
  if (set.global.ipv6) std::cout << "ipv6=true\n";
}

void print(const TariffConfig& tariffs) {
  std::set<std::uint32_t> addresses;
  std::set<Ip6Prefix> prefixes;
  for (const TariffSettings& tariff : tariffs.tariffs()) {
    addresses.insert(tariff.addresses.begin(), tariff.addresses.end());
    prefixes.insert(tariff.prefixes.begin(), tariff.prefixes.end());
  }
  std::cout << "tariffs=" << tariffs.tariffs().size() << '\n'
            << "addresses=" << addresses.size() << '\n';
  if (!prefixes.empty()) std::cout << "prefixes=" << prefixes.size() << '\n';
}

// Whether the file that fills an object of this kind is accepted.
template <typename Config>
bool check(bool summary) {
  Config config;
  if (const auto error = check_stored(config)) {
    std::cerr << error->text() << '\n';
    return false;
  }
  if (summary) print(config);
  return true;
}

Status run(int count, const char* const* words) {
  const bool summary = count == 2 && std::string_view(words[1]) == "--summary";
  if (count != 1 && !summary) {
    std::cerr << "Usage: check-files [--summary]\n";
    return kWrongCall;
  }
  const bool global = check<GlobalSet>(summary);
  const bool tariffs = check<TariffConfig>(summary);
  return global && tariffs ? kAccepted : kRefused;
}

}  // namespace
}  // namespace quenby

int main(int argc, char* argv[]) { return quenby::run(argc, argv); }
