#include "ctl/address.h"

#include <arpa/inet.h>

#include <gtest/gtest.h>

#include "tests/ctl/shaping_fixture.h"

// Addresses of both families, and what holds them.
namespace quenby {
namespace {

Address address(const std::string& text) {
  const auto parsed = parse_address(text);
  EXPECT_TRUE(parsed) << text;
  return parsed.value_or(Address());
}

TEST(Addresses, AreWrittenInOneForm) {
  for (const auto& [given, form] : {std::pair{"10.0.0.1", "10.0.0.1"},
                                    {"2001:DB8:0::0:1", "2001:db8::1"},
                                    {"::", "::"},
                                    {"fe80::1", "fe80::1"},
                                    {"::10.0.0.1", "::10.0.0.1"}}) {
    EXPECT_EQ(to_text(address(given)), form);
  }
}

// What a log of a program with one socket for both has.
TEST(Addresses, OfIpv4InTheFormOfIpv6AreOfIpv4) {
  for (const char* text : {"::ffff:10.0.0.1", "::FFFF:a00:1", "0:0:0:0:0:ffff:10.0.0.1"})
    EXPECT_EQ(address(text), address("10.0.0.1")) << text;
  EXPECT_NE(address("::fffe:10.0.0.1"), address("10.0.0.1"));
  EXPECT_NE(address("2001::ffff:10.0.0.1"), address("10.0.0.1"));
}

TEST(Addresses, AreNotWhatIsNone) {
  for (const char* text : {"", "10.0.0", "10.0.0.256", "10.0.0.1/32", "2001:db8::1/128", "2001:db8",
                           "2001:db8::1::", "fe80::1%eth0", " ::1", "::g"}) {
    EXPECT_EQ(parse_address(text), std::nullopt) << text;
  }
}

TEST(Addresses, AreHeldByPrefixes) {
  const auto held = [](const char* prefix, const char* text) {
    return holds(*parse_ip6_prefix(prefix), std::get<Ip6Address>(address(text)));
  };
  EXPECT_TRUE(held("2001:db8::/64", "2001:db8::"));
  EXPECT_TRUE(held("2001:db8::/64", "2001:db8::ffff:ffff:ffff:ffff"));
  EXPECT_TRUE(held("2001:db8:0:2::/63", "2001:db8:0:3::1"));
  EXPECT_TRUE(held("2001:db8::7", "2001:db8::7"));
  EXPECT_FALSE(held("2001:db8::/64", "2001:db8:0:1::"));
  EXPECT_FALSE(held("2001:db8:0:2::/63", "2001:db8:0:4::"));
  EXPECT_FALSE(held("2001:db8::7", "2001:db8::6"));
}

class HolderTest : public testing::Test {
 protected:
  HolderTest() {
    line.global.ipv6 = true;
    EXPECT_TRUE(a.addPrefix("2001:db8::/48") && a.addPrefix("2001:db8:0:1::7"));
    EXPECT_TRUE(b.addPrefix("2001:db8:0:1::/64"));
  }

  // "b" or "a" and what of it holds an address; nothing when nobody has it.
  std::string owner(const std::string& text) const {
    const Shaping shaping = shaping_of(test::load_of(line, a, b), test::kGigabitPort);
    const auto holder = find_holder(shaping, address(text));
    if (!holder) return "";
    for (const ShapedClass& one : shaping.classes) {
      if (!has(one.planned, *holder)) continue;
      const auto* const prefix = std::get_if<Ip6Prefix>(&*holder);
      return one.planned.name + (prefix == nullptr ? "" : ' ' + to_text(*prefix));
    }
    return "no class has it";
  }

  GlobalSet line = test::line();
  TariffSettings a = test::shaped("a", 4, "10.0.0.1");
  TariffSettings b = test::shaped("b", 5, "10.0.0.2");
};

TEST_F(HolderTest, IsTheLongestPrefixOfAllTariffs) {
  EXPECT_EQ(owner("2001:db8::7"), "a 2001:db8::/48");
  EXPECT_EQ(owner("2001:db8:0:1::6"), "b 2001:db8:0:1::/64");
  EXPECT_EQ(owner("2001:db8:0:1::7"), "a 2001:db8:0:1::7");
  EXPECT_EQ(owner("2001:db8:1::7"), "");
}

TEST_F(HolderTest, IsAnAddressItself) {
  EXPECT_EQ(owner("10.0.0.2"), "b");
  EXPECT_EQ(owner("10.0.0.3"), "");
}

TEST_F(HolderTest, IsNoPrefixWhereIpv6IsNotShaped) {
  line.global.ipv6 = false;
  EXPECT_EQ(owner("2001:db8::7"), "");
  line.global.ipv6 = true;
  line.global.wan.clear();
  EXPECT_EQ(owner("2001:db8::7"), "");
  EXPECT_EQ(owner("10.0.0.1"), "a");
}

}  // namespace
}  // namespace quenby
