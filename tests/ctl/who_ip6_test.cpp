#include <arpa/inet.h>

#include <gtest/gtest.h>

#include "ctl/who_value.h"
#include "tests/ctl/shaping_fixture.h"

// Whose an IPv6 address is, and where the kernel disagrees.
namespace quenby {
namespace {

using test::kDefaultDownload;
using test::kDefaultUpload;

constexpr const char* kClassesOfB =
    "  upload: eth1 class 8000:5, guarantee 500 kbit/s, ceiling 500 kbit/s, queue of the kernel\n"
    "  download: ifb_ingr class 8000:5, guarantee 1000 kbit/s, ceiling 1000 kbit/s, queue of the "
    "kernel\n";

// Of tariff "b", within one of tariff "a".
constexpr const char* kAddress = "2001:db8:0:1203::5";

Ip6Prefix prefix(const std::string& text) { return parse_ip6_prefix(text).value_or(Ip6Prefix()); }

PrefixSetEntry entry(const std::string& text, unsigned number) {
  return address_set_entry(prefix(text), number);
}

Ip6Connection connection(const char* source, const char* reply_source, std::uint32_t mark) {
  Ip6Connection connection;
  connection.source = prefix(source).address;
  connection.reply_source = prefix(reply_source).address;
  connection.mark = mark;
  return connection;
}

class WhoIp6Test : public testing::Test {
 protected:
  WhoIp6Test() {
    line.global.ipv6 = true;
    EXPECT_TRUE(a.addPrefix("2001:db8::/48") && b.addPrefix("2001:db8:0:1200::/56"));
    load();
    facts.prefix_entries = {entry("2001:db8::/48", 4), entry("2001:db8:0:1200::/56", 5)};
  }

  void load() { facts.line = test::line_facts(test::load_of(line, a, b)); }
  Who who(const std::string& address = kAddress) const {
    return who_has(parse_address(address).value(), facts);
  }
  std::string text(const std::string& address = kAddress) const { return to_text(who(address)); }

  // How many problems an address has with one difference.
  std::size_t problems(const std::string& place, const std::string& object,
                       const std::string& address = kAddress) {
    facts.drift = {{DriftKind::missing, place, object, "", {}, false}};
    return who(address).problems.size();
  }

  GlobalSet line = test::line();
  TariffSettings a = test::shaped("a", 4, "10.0.0.1");
  TariffSettings b = test::shaped("b", 5, "10.0.0.2");
  WhoFacts facts;
};

TEST_F(WhoIp6Test, NamesThePrefixTariffClassesAndMark) {
  EXPECT_EQ(text("2001:DB8:0:1203:0::5"),
            "2001:db8:0:1203::5: tariff \"b\", number 5\n  prefix: 2001:db8:0:1200::/56\n" +
                std::string(kClassesOfB) + "  address set: mark 0x80000005\n");
}

TEST_F(WhoIp6Test, TheLongestPrefixCounts) {
  EXPECT_EQ(who("2001:db8:0:1300::5").tariffs, std::vector<std::string>{"a"});
  EXPECT_EQ(who("2001:db8:0:1300::5").set_mark, 0x80000004U);
  ASSERT_TRUE(a.addPrefix(kAddress));
  load();
  EXPECT_EQ(who().tariffs, std::vector<std::string>{"a"});
  EXPECT_EQ(who().mark, 0x80000004U);
  // The set has not got that one.
  EXPECT_EQ(who().set_mark, 0x80000005U);
}

TEST_F(WhoIp6Test, OfSeveralTariffsTheLastByNameHasThePrefix) {
  ASSERT_TRUE(a.addPrefix("2001:db8:0:1200::/56"));
  load();
  EXPECT_EQ(who().tariffs, (std::vector<std::string>{"a", "b"}));
  EXPECT_NE(text().find("  in the files tariff \"a\" has it too\n"), std::string::npos);
}

TEST_F(WhoIp6Test, AnAddressOfNobodysIsInTheDefaultTariff) {
  EXPECT_EQ(text("2001:db8:1::5"), "2001:db8:1::5: no tariff has it\n" +
                                       std::string(kDefaultUpload) + kDefaultDownload +
                                       "  address set: not in it\n");
  line.has_default = true;
  for (const Direction way : kDirections) line.defaults.direction(way).setSpeed("64");
  load();
  EXPECT_EQ(who("2001:db8:1::5").mark, 0x80000003U);
  EXPECT_EQ(text("2001:db8:1::5").substr(0, 65),
            "2001:db8:1::5: no tariff has it, so it is in the default tariff\n ");
}

TEST_F(WhoIp6Test, WhereItIsNotShapedThatIsSaid) {
  line.global.ipv6 = false;
  load();
  facts.drift = {{DriftKind::missing, "eth1", "class 8000:5", "", {}, false}};
  EXPECT_EQ(text(), "2001:db8:0:1203::5: IPv6 is not shaped\n" + std::string(kDefaultUpload) +
                        "  download: unshaped\n");
  EXPECT_TRUE(who().problems.empty());
  EXPECT_EQ(who("10.0.0.2").problems.size(), 1U);
  EXPECT_EQ(problems("eth1", "class 8000:2"), 1U);
  EXPECT_EQ(problems("ifb_ingr", ""), 0U);
}

// Of what is closed only the upload holds IPv6 up too.
TEST_F(WhoIp6Test, WhereItIsNotShapedAndTheLineIsClosed) {
  line.global.ipv6 = false;
  for (const Direction way : kDirections) line.global.direction(way).setSpeed("0");
  load();
  EXPECT_EQ(text(),
            "2001:db8:0:1203::5: IPv6 is not shaped\n  upload: dropped\n  download: unshaped\n");
}

TEST_F(WhoIp6Test, OnTheImqDeviceItIsNotShaped) {
  line.global.wan.clear();
  load();
  EXPECT_EQ(text(),
            "2001:db8:0:1203::5: IPv6 is not shaped\n  upload: unshaped\n  download: unshaped\n");
}

TEST_F(WhoIp6Test, CountsConnectionsByMark) {
  facts.ip6_connections = {connection(kAddress, "2001:db8:ffff::2", 0x80000005),
                           connection("2001:db8:ffff::2", kAddress, 0xffff8005),
                           connection(kAddress, "2001:db8:ffff::3", 0x80000004),
                           connection("2001:db8:0:1203::6", "2001:db8:ffff::3", 0x80000004)};
  const Who found = who();
  ASSERT_EQ(found.connections.size(), 2U);
  EXPECT_EQ(found.connections[0].tariff, "a");
  EXPECT_EQ(found.connections[1].count, 2U);
  EXPECT_EQ(found.problems,
            std::vector<std::string>{"1 open connection has the mark 0x80000004 of \"a\""});
}

TEST_F(WhoIp6Test, DifferencesThatItsPacketsMeet) {
  for (const auto& [place, object] : std::vector<std::pair<std::string, std::string>>{
           {"eth1", "class 8000:5"},
           {"ifb_ingr", "qdisc 8005:"},
           {"eth1", "IPv6 filter by mark"},
           {"eth1", "IPv6 redirection to ifb_ingr"},
           {"eth1", "qdisc ffff:"},
           {"ifb_ingr", ""},
           {"set", "kavo_opt_shaper6"},
           {"set", "prefix 2001:db8:0:1200::/56"},
           {"set", "prefix 2001:db8:0:1203::/64"},
           {"set", "prefix 2001:db8:0:1203::5"},
           {"firewall", "IPv6 rule mangle KAVO_QOS_FW_OUT_HOOK ! -o eth1 -j RETURN"}}) {
    EXPECT_EQ(problems(place, object), 1U) << place << ' ' << object;
  }
  EXPECT_EQ(problems("set", "prefix 2001:db8::/16", "2001:db8:1::5"), 1U);
}

TEST_F(WhoIp6Test, DifferencesOfOthers) {
  for (const auto& [place, object] : std::vector<std::pair<std::string, std::string>>{
           {"eth1", "class 8000:4"},
           {"eth1", "filter by mark"},
           {"eth1", "redirection to ifb_ingr"},
           {"set", "kavo_opt_shaper"},
           {"set", "address 10.0.0.2"},
           {"set", "prefix 2001:db8::/48"},
           {"set", "prefix 2001:db8:0:1204::/64"},
           {"firewall", "rule mangle KAVO_QOS_FW_OUT_HOOK ! -o eth1 -j RETURN"}}) {
    EXPECT_EQ(problems(place, object), 0U) << place << ' ' << object;
  }
}

// What IPv4 never meets.
TEST_F(WhoIp6Test, DifferencesOfIpv6AreNoneOfAnIpv4Address) {
  for (const auto& [place, object] : std::vector<std::pair<std::string, std::string>>{
           {"eth1", "IPv6 filter by mark"},
           {"eth1", "IPv6 redirection to ifb_ingr"},
           {"set", "kavo_opt_shaper6"},
           {"set", "prefix 2001:db8::/48"},
           {"firewall", "IPv6 rule mangle KAVO_QOS_FW_OUT_HOOK ! -o eth1 -j RETURN"}}) {
    EXPECT_EQ(problems(place, object, "10.0.0.2"), 0U) << place << ' ' << object;
  }
}

TEST_F(WhoIp6Test, Json) {
  std::string json = json_text({who(), who("2001:db8:1::5"), who("10.0.0.9")});
  std::erase_if(json, [](char c) { return c == ' ' || c == '\n'; });
  EXPECT_NE(json.find(R"({"address":"2001:db8:0:1203::5","classes":[{)"), std::string::npos);
  EXPECT_NE(json.find(R"("number":5,"prefix":"2001:db8:0:1200::/56","problems":[])"),
            std::string::npos);
  EXPECT_NE(json.find(R"("download":"class","mark":2147483651,"number":null,"prefix":null,)"),
            std::string::npos);
  EXPECT_NE(json.find(R"("download":"class","mark":2147483651,"number":null,"problems":[],)"),
            std::string::npos);
}

}  // namespace
}  // namespace quenby
