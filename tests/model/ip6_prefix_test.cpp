#include "model/ip6_prefix.h"

#include <gtest/gtest.h>
#include <vector>

// IPv6 prefixes as files have them.
namespace quenby {
namespace {

std::string read_and_written(const std::string& text) {
  const auto prefix = parse_ip6_prefix(text);
  return prefix ? to_text(*prefix) : "refused";
}

TEST(Ip6Prefix, IsWrittenInOneForm) {
  const struct {
    const char* text;
    const char* form;
  } rows[] = {
      {"2001:db8::1", "2001:db8::1"},
      {"2001:db8::1/128", "2001:db8::1"},
      {"2001:DB8:0:0:0:0:0:A", "2001:db8::a"},
      {"2001:db8:0:1::/64", "2001:db8:0:1::/64"},
      {"2001:db8:0:1:2:3:4:5/64", "2001:db8:0:1::/64"},
      {"2001:db8:0:1ff::/56", "2001:db8:0:100::/56"},
      {"2001:db8:7:8::/48", "2001:db8:7::/48"},
      {"2001:db8::ffff/127", "2001:db8::fffe/127"},
      {"2001:db8::ffff/121", "2001:db8::ff80/121"},
      {"2001:db8::1/064", "2001:db8::/64"},
      {"2001:db8::10.0.0.1", "2001:db8::a00:1"},
      {"ffff::/1", "refused"},
      {"8000::/1", "8000::/1"},
      {"fd00::1/8", "fd00::/8"},
      {"fec0::1", "fec0::1"},
      {"::1", "::1"},
      {"::10.0.0.1", "::10.0.0.1"},
      {"::fffe:10.0.0.1", "::fffe:a00:1"},
      {"::ffff:0:a00:1", "::ffff:0:a00:1"},
      {"ffff:ffff:ffff:ffff:ffff:ffff:ffff:fffe", "refused"},
      {"feff:ffff:ffff:ffff:ffff:ffff:ffff:ffff", "feff:ffff:ffff:ffff:ffff:ffff:ffff:ffff"},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.text);
    EXPECT_EQ(read_and_written(row.text), row.form);
  }
}

TEST(Ip6Prefix, ReadsWhatItWrites) {
  for (unsigned length = 1; length <= 128; ++length) {
    SCOPED_TRACE(length);
    const auto prefix =
        parse_ip6_prefix("adb8:f9f9:aaaa:5555:ff00:ff:8001:7ffe/" + std::to_string(length));
    ASSERT_TRUE(prefix);
    EXPECT_EQ(prefix->length, length);
    EXPECT_EQ(parse_ip6_prefix(to_text(*prefix)), prefix);
  }
}

TEST(Ip6Prefix, RefusesEverythingElse) {
  const std::vector<const char*> no_prefixes = {"",
                                                "/",
                                                "/64",
                                                "10.0.0.1",
                                                "10.0.0.0/24",
                                                "2001:db8",
                                                "2001:db8::1::2",
                                                "2001:db8::g",
                                                "2001:db8::12345",
                                                "1:2:3:4:5:6:7:8:9",
                                                "[2001:db8::1]",
                                                " 2001:db8::1",
                                                "2001:db8::1 ",
                                                "2001:db8::1%eth0",
                                                "2001:db8::1 /64",
                                                "host",
                                                ":",
                                                ":::"};
  const std::vector<const char*> nobody_forwards = {
      "::",      "::/64",    "::/128",  "::ffff:10.0.0.1", "::ffff:0:0/96", "::ffff:10.0.0.1/64",
      "ff02::1", "ff00::/8", "ffff::1", "fe80::1",         "fe80::/10",     "fe80::/64",
      "febf::1"};
  // Without the bits after their length they would be such an address, and not read again.
  const std::vector<const char*> not_written = {"2001:db8::1/2", "::5/64", "::1/127",
                                                "::fffe:0:1/60", "fe90::1/10"};
  for (const auto* texts : {&no_prefixes, &nobody_forwards, &not_written}) {
    for (const char* text : *texts) EXPECT_EQ(parse_ip6_prefix(text), std::nullopt) << text;
  }
  for (const char* length : {"", "0", "129", "1000", "4294967360", "99999999999999999999", "-1",
                             "+64", "64 ", " 64", "6 4", "64/64", "0x40", "64.0", "ffff::", "x"})
    EXPECT_EQ(parse_ip6_prefix(std::string("2001:db8::1/") + length), std::nullopt) << length;
}

TEST(Ip6Prefix, AreOrderedByAddressAndLength) {
  const auto wide = *parse_ip6_prefix("2001:db8::/48");
  const auto narrow = *parse_ip6_prefix("2001:db8::/64");
  const auto next = *parse_ip6_prefix("2001:db8:1::/48");
  EXPECT_LT(wide, narrow);
  EXPECT_LT(narrow, next);
  EXPECT_NE(wide, narrow);
  EXPECT_EQ(wide, parse_ip6_prefix("2001:db8::1/48"));
}

}  // namespace
}  // namespace quenby
