#pragma once

#include <iterator>
#include <random>
#include <string>

namespace quenby::test {

inline const std::string kSeedText =
    "[gold]\nid=4\nip=10.0.0.1/24\nip6=2001:db8::7/64\naggregation=2.5\ndownload_speed=10000\n"
    "download_burst_rate=20000\ndownload_burst_size=15000\nqueuing_discipline=sfq\n"
    "[global]\nenabled=true\nipv6=true\nwan=eth1\nupload_speed=5\n[defaultqosipqueue]\nupload_"
    "speed=1e9\n";

inline const char* const kTokens[] = {"[",
                                      "]",
                                      "=",
                                      "\n",
                                      "\r\n",
                                      "nan",
                                      "inf",
                                      "1e300",
                                      "-1",
                                      "0x",
                                      "id=",
                                      "ip=",
                                      "ip6=",
                                      "2001:db8::/",
                                      "ipv6=",
                                      "[a]",
                                      "/",
                                      "99999999999999999999",
                                      " ",
                                      "\t",
                                      "enabled=",
                                      "upload_speed=",
                                      "aggregation=",
                                      "\xff",
                                      "upload_burst_size=",
                                      "download_burst_rate="};

/// Texts that are hardly ever good files, the same ones in each run: random bytes, random pieces of
/// files, and a good file with some changes.
class IniGenerator {
 public:
  /// Texts of one kind have the same index modulo 3.
  std::string next(int index) {
    if (index % 3 == 0) return mutated();
    return index % 3 == 1 ? random_tokens() : random_bytes();
  }

 private:
  unsigned below(unsigned limit) { return static_cast<unsigned>(random_() % limit); }

  std::string random_bytes() {
    std::string text(below(300), '\0');
    for (char& c : text) c = static_cast<char>(below(256));
    return text;
  }

  std::string random_tokens() {
    std::string text;
    for (unsigned count = below(40); count > 0; --count) text += kTokens[below(std::size(kTokens))];
    return text;
  }

  std::string mutated() {
    std::string text = kSeedText;
    for (unsigned changes = 1 + below(6); changes > 0; --changes) {
      const std::size_t at = below(static_cast<unsigned>(text.size()));
      switch (below(4)) {
        case 0:
          text[at] = static_cast<char>(below(256));
          break;
        case 1:
          text.erase(at, 1 + below(20));
          break;
        case 2:
          text.insert(at, kTokens[below(std::size(kTokens))]);
          break;
        default:
          text.insert(at, text.substr(below(static_cast<unsigned>(text.size())), below(5000)));
      }
      if (text.empty()) text = "[";
    }
    return text;
  }

  std::mt19937 random_{20'240'601};
};

}  // namespace quenby::test
