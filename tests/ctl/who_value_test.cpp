#include "ctl/who_value.h"

#include <arpa/inet.h>

#include <gtest/gtest.h>

#include "tests/ctl/shaping_fixture.h"

// Whose an address is, and where the kernel disagrees.
namespace quenby {
namespace {

constexpr const char* kClassesOfA =
    "  upload: eth1 class 8000:4, guarantee 500 kbit/s, ceiling 500 kbit/s, queue of the kernel\n"
    "  download: ifb_ingr class 8000:4, guarantee 1000 kbit/s, ceiling 1000 kbit/s, queue of the "
    "kernel\n";

Connection connection(const char* source, const char* reply_source, std::uint32_t mark) {
  Connection connection;
  connection.source = inet_addr(source);
  connection.reply_source = inet_addr(reply_source);
  connection.mark = mark;
  return connection;
}

Drift drift(const std::string& place, const std::string& object) {
  return {DriftKind::missing, place, object, "", {}, false};
}

class WhoTest : public testing::Test {
 protected:
  WhoTest() {
    facts.shaping = test::two_tariffs();
    facts.entries = {address_set_entry(inet_addr("10.0.0.1"), 4),
                     address_set_entry(inet_addr("10.0.0.2"), 5)};
  }

  std::string text(const char* address = "10.0.0.1") {
    return to_text(who_has(inet_addr(address), facts));
  }
  // How many problems an address has.
  std::size_t problems(const char* address = "10.0.0.1") {
    return who_has(inet_addr(address), facts).problems.size();
  }

  WhoFacts facts;
};

TEST_F(WhoTest, NamesTariffClassesAndMark) {
  EXPECT_EQ(text(), "10.0.0.1: tariff \"a\", number 4\n" + std::string(kClassesOfA) +
                        "  address set: mark 0x80000004\n");
}

TEST_F(WhoTest, AnAddressOfNobodysIsInTheDefaultTariff) {
  EXPECT_EQ(text("10.9.9.9"), "10.9.9.9: no tariff has it\n  no class\n");
  GlobalSet set = test::line();
  set.has_default = true;
  for (const Direction way : kDirections) set.defaults.direction(way).setSpeed("64");
  facts.shaping =
      shaping_of(test::load_of(set, test::shaped("a", 4, "10.0.0.1")), test::kGigabitPort);
  const Who who = who_has(inet_addr("10.9.9.9"), facts);
  ASSERT_EQ(who.classes.size(), 2U);
  EXPECT_EQ(who.mark, 0x80000003U);
  EXPECT_EQ(to_text(who).substr(0, 60),
            "10.9.9.9: no tariff has it, so it is in the default tariff\n ");
}

TEST_F(WhoTest, OfSeveralTariffsTheLastByNameHasIt) {
  facts.shaping = shaping_of(test::load_of(test::line(), test::shaped("a", 4, "10.0.0.1"),
                                           test::shaped("b", 5, "10.0.0.1")),
                             test::kGigabitPort);
  EXPECT_EQ(text().substr(0, 85),
            "10.0.0.1: tariff \"b\", number 5\n  in the files tariff \"a\" has it too\n  upload: "
            "eth1 cl");
}

TEST_F(WhoTest, CountsConnectionsOfEitherEnd) {
  facts.connections = {connection("10.0.0.1", "192.0.2.1", 0x80000004),
                       connection("192.0.2.1", "10.0.0.1", 0x80000004),
                       connection("10.0.0.1", "192.0.2.1", 0xc0000005),
                       connection("10.0.0.2", "192.0.2.1", 0x80000005)};
  const Who who = who_has(inet_addr("10.0.0.1"), facts);
  ASSERT_EQ(who.connections.size(), 2U);
  EXPECT_EQ(who.connections[0].count, 2U);
  EXPECT_EQ(who.connections[1].tariff, "b");
  EXPECT_EQ(who.problems,
            std::vector<std::string>{"1 open connection has the mark 0x80000005 of \"b\""});
  EXPECT_NE(to_text(who).find("\n  mended by: quenbyctl repair\n"), std::string::npos);
}

TEST_F(WhoTest, AMarkOfNobodys) {
  facts.connections = {connection("10.0.0.1", "192.0.2.1", 0x80000077)};
  EXPECT_NE(text().find("1 open connection: mark 0x80000077 of nobody\n"), std::string::npos);
  EXPECT_EQ(problems(), 1U);
}

TEST_F(WhoTest, AMissingEntry) {
  facts.entries.clear();
  EXPECT_NE(text().find("  address set: not in it\n"), std::string::npos);
}

TEST_F(WhoTest, DifferencesThatItsPacketsMeet) {
  for (const auto& [place, object] : std::vector<std::pair<std::string, std::string>>{
           {"eth1", "class 8000:4"},
           {"ifb_ingr", "class 8000:4"},
           {"eth1", "class 8000:1"},
           {"eth1", "qdisc 8004:"},
           {"eth1", "qdisc 8000:"},
           {"eth1", "qdisc ffff:"},
           {"eth1", "filter by mark"},
           {"eth1", "redirection to ifb_ingr"},
           {"ifb_ingr", ""},
           {"set", "address 10.0.0.1"},
           {"set", "kavo_opt_shaper"},
           {"firewall", "rule mangle KAVO_QOS_FW_OUT_HOOK ! -o eth1 -j RETURN"}}) {
    facts.drift = {drift(place, object)};
    EXPECT_EQ(problems(), 1U) << place << ' ' << object;
  }
}

TEST_F(WhoTest, DifferencesOfOthers) {
  for (const auto& [place, object] : std::vector<std::pair<std::string, std::string>>{
           {"eth1", "class 8000:5"},
           {"eth2", "class 8000:4"},
           {"eth1", "qdisc 8005:"},
           {"eth1", "u32 3:1:0 at 16 match 10.0.0.10 class 8000:4"},
           {"set", "address 10.0.0.10"},
           {"steering", "eth1"}}) {
    facts.drift = {drift(place, object)};
    EXPECT_EQ(problems(), 0U) << place << ' ' << object;
  }
}

TEST_F(WhoTest, TheImqDeviceHasNoMarks) {
  facts.shaping = shaping_of(test::load_of(test::line(""), test::shaped("a", 4, "10.0.0.1")),
                             test::kGigabitPort);
  const Who who = who_has(inet_addr("10.0.0.1"), facts);
  EXPECT_EQ(who.mark, std::nullopt);
  EXPECT_EQ(to_text(who).find("address set"), std::string::npos);
  facts.drift = {drift("imq0", "u32 3:1:0 at 16 match 10.0.0.1 class 8000:4")};
  EXPECT_EQ(problems(), 1U);
}

TEST_F(WhoTest, Json) {
  std::string text = json_text({who_has(inet_addr("10.0.0.1"), facts)});
  std::erase_if(text, [](char c) { return c == ' ' || c == '\n'; });
  EXPECT_EQ(text,
            R"({"addresses":[{"address":"10.0.0.1","classes":[{"ceiling":62500,"class":"8000:4",)"
            R"("device":"eth1","direction":"upload","guarantee":62500,"leaf":null},)"
            R"({"ceiling":125000,"class":"8000:4","device":"ifb_ingr","direction":"download",)"
            R"("guarantee":125000,"leaf":null}],"connections":[],"mark":2147483652,"number":4,)"
            R"("problems":[],"set_mark":2147483652,"tariffs":["a"]}]})");
}

}  // namespace
}  // namespace quenby
