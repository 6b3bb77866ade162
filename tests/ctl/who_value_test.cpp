#include "ctl/who_value.h"

#include <arpa/inet.h>

#include <gtest/gtest.h>

#include "tests/ctl/shaping_fixture.h"

// Whose an address is, and where the kernel disagrees.
namespace quenby {
namespace {

using test::kDefaultDownload;
using test::kDefaultUpload;

constexpr const char* kUploadOfA =
    "  upload: eth1 class 8000:4, guarantee 500 kbit/s, ceiling 500 kbit/s, queue of the kernel\n";
constexpr const char* kDownloadOfA =
    "  download: ifb_ingr class 8000:4, guarantee 1000 kbit/s, ceiling 1000 kbit/s, queue of the "
    "kernel\n";
const std::string kDefaultClasses = std::string(kDefaultUpload) + kDefaultDownload;

// A line with a default tariff; a direction without a speed has none of it.
GlobalSet with_default(const char* download, const char* upload, const std::string& wan = "eth1") {
  GlobalSet set = test::line(wan);
  set.has_default = true;
  if (download != nullptr) set.defaults.download.setSpeed(download);
  if (upload != nullptr) set.defaults.upload.setSpeed(upload);
  return set;
}

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
    facts.line = test::line_facts(test::load_of(test::line(), a, b));
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

  // The line as it is with other settings.
  template <typename... T>
  void load(const GlobalSet& set, const T&... tariffs) {
    facts.line = test::line_facts(test::load_of(set, tariffs...));
  }

  TariffSettings a = test::shaped("a", 4, "10.0.0.1");
  TariffSettings b = test::shaped("b", 5, "10.0.0.2", "2000");
  WhoFacts facts;
};

TEST_F(WhoTest, NamesTariffClassesAndMark) {
  EXPECT_EQ(text(), "10.0.0.1: tariff \"a\", number 4\n" + std::string(kUploadOfA) + kDownloadOfA +
                        "  address set: mark 0x80000004\n");
}

TEST_F(WhoTest, AnAddressOfNobodysIsInTheDefaultTariff) {
  load(with_default("64", "64"), a);
  const Who who = who_has(inet_addr("10.9.9.9"), facts);
  EXPECT_EQ(who.number, 3U);
  EXPECT_EQ(who.mark, 0x80000003U);
  EXPECT_EQ(to_text(who),
            "10.9.9.9: no tariff has it, so it is in the default tariff\n"
            "  upload: eth1 class 8000:3, guarantee 0.064 kbit/s, ceiling 64 kbit/s, queue "
            "fq_codel 8003:\n"
            "  download: ifb_ingr class 8000:3, guarantee 0.064 kbit/s, ceiling 64 kbit/s, queue "
            "fq_codel 8003:\n"
            "  address set: not in it\n");
}

// Its mark names a class that is not there, and the root leads to the default class.
TEST_F(WhoTest, WithoutADefaultTariffAnAddressOfNobodysIsInTheDefaultClass) {
  EXPECT_EQ(text("10.9.9.9"), "10.9.9.9: no tariff has it\n" + std::string(kDefaultClasses) +
                                  "  address set: not in it\n");
  const Who who = who_has(inet_addr("10.9.9.9"), facts);
  EXPECT_EQ(who.number, std::nullopt);
  EXPECT_EQ(who.mark, 0x80000003U);
}

TEST_F(WhoTest, WithoutALineSpeedThereIsNoDefaultClass) {
  GlobalSet set = test::line();
  set.global.download.speed = kNeverSet;
  load(set, a);
  EXPECT_EQ(text("10.9.9.9"), "10.9.9.9: no tariff has it\n" + std::string(kDefaultUpload) +
                                  "  download: unshaped\n  address set: not in it\n");
}

TEST_F(WhoTest, ADefaultTariffOfOneDirection) {
  load(with_default("64", nullptr), a);
  EXPECT_EQ(text("10.9.9.9"),
            "10.9.9.9: no tariff has it, so it is in the default tariff\n" +
                std::string(kDefaultUpload) +
                "  download: ifb_ingr class 8000:3, guarantee 0.064 kbit/s, ceiling 64 kbit/s, "
                "queue fq_codel 8003:\n"
                "  address set: not in it\n");
}

// The default tariff's class is for those that have no tariff.
TEST_F(WhoTest, ATariffWithoutAClassInOneDirectionTakesTheDefaultClass) {
  a.upload.speed = kNeverSet;
  load(with_default("64", "64"), a);
  EXPECT_EQ(text(), "10.0.0.1: tariff \"a\", number 4\n" + std::string(kDefaultUpload) +
                        "  download: ifb_ingr class 8000:4, guarantee 1000 kbit/s, ceiling 1000 "
                        "kbit/s, queue of the kernel\n  address set: mark 0x80000004\n");
}

TEST_F(WhoTest, ATariffWithoutAClassHasItsMark) {
  a.upload.speed = a.download.speed = kNeverSet;
  load(test::line(), a, b);
  facts.connections = {connection("10.0.0.1", "192.0.2.1", 0x80000004)};
  EXPECT_EQ(text(), "10.0.0.1: tariff \"a\", number 4\n" + std::string(kDefaultClasses) +
                        "  address set: mark 0x80000004\n"
                        "  1 open connection: mark 0x80000004 of \"a\"\n");
}

TEST_F(WhoTest, WhereShapingIsOffNothingIsShaped) {
  GlobalSet set = test::line();
  set.global.enabled = false;
  load(set, a);
  facts.entries.clear();
  EXPECT_EQ(text(), "10.0.0.1: tariff \"a\", number 4\n  upload: unshaped\n  download: unshaped\n");
}

TEST_F(WhoTest, WithoutItsInterfaceNothingPasses) {
  facts.line = test::line_facts(test::load_of(test::line(), a), false);
  EXPECT_EQ(text(),
            "10.0.0.1: tariff \"a\", number 4\n  upload: the WAN interface is missing\n"
            "  download: the WAN interface is missing\n");
}

TEST_F(WhoTest, AClosedDownload) {
  GlobalSet set = test::line();
  set.global.download.setSpeed("0");
  load(set, a);
  EXPECT_EQ(text(), "10.0.0.1: tariff \"a\", number 4\n" + std::string(kUploadOfA) +
                        "  download: dropped\n  address set: mark 0x80000004\n");
}

// It is on the way out that packets and their connections are marked.
TEST_F(WhoTest, WhereNothingLeavesNothingIsMarked) {
  GlobalSet set = test::line();
  set.global.upload.setSpeed("0");
  load(set, a);
  EXPECT_EQ(text(), "10.0.0.1: tariff \"a\", number 4\n  upload: dropped\n" +
                        std::string(kDefaultDownload));
  EXPECT_EQ(who_has(inet_addr("10.0.0.1"), facts).mark, std::nullopt);
}

TEST_F(WhoTest, ADefaultTariffThatIsClosedOnALineWithoutASpeed) {
  GlobalSet set = with_default("0", "64");
  for (const Direction way : kDirections) set.global.direction(way).speed = kNeverSet;
  a.download.speed = kNeverSet;
  load(set, a);
  EXPECT_EQ(who_has(inet_addr("10.9.9.9"), facts).ways[1].passing, Passing::dropped);
  EXPECT_EQ(who_has(inet_addr("10.0.0.1"), facts).ways[1].passing, Passing::unshaped);
  set.defaults.upload.speed = kNeverSet;
  load(set, a);
  EXPECT_EQ(text("10.9.9.9"),
            "10.9.9.9: no tariff has it, so it is in the default tariff\n  upload: unshaped\n"
            "  download: dropped\n  address set: not in it\n");
}

TEST_F(WhoTest, OfSeveralTariffsTheLastByNameHasIt) {
  load(test::line(), a, test::shaped("b", 5, "10.0.0.1"));
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

TEST_F(WhoTest, NamesWhatMendsItsProblems) {
  facts.drift = {
      {DriftKind::missing, "eth1", "class 8000:4", "", Mendings{MakeClass{}}, false},
      {DriftKind::different, "set", "kavo_opt_shaper", "type hash:net",
       OtherSetType{"kavo_opt_shaper"}, false},
      {DriftKind::missing, "ifb_ingr", "class 8000:4", "", Mendings{MakeClass{}}, false}};
  const std::string all = text();
  EXPECT_EQ(all.substr(all.find("  mended by")),
            "  mended by: quenbyctl repair\n"
            "  mended by: quenby --stop && ipset destroy kavo_opt_shaper && quenby --load\n");
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
  load(test::line(""), a);
  const Who who = who_has(inet_addr("10.0.0.1"), facts);
  EXPECT_EQ(who.mark, std::nullopt);
  EXPECT_EQ(to_text(who).find("address set"), std::string::npos);
  facts.drift = {drift("imq0", "u32 3:1:0 at 16 match 10.0.0.1 class 8000:4")};
  EXPECT_EQ(problems(), 1U);
}

// Both directions have one default class, to which the root leads where the upload has one.
TEST_F(WhoTest, TheDefaultClassOfTheImqDevice) {
  constexpr const char* kClass =
      "imq0 class 8000:2, guarantee 0.064 kbit/s, ceiling 64 kbit/s, queue fq_codel 8002:\n";
  constexpr const char* kUnshaped =
      "10.9.9.9: no tariff has it\n  upload: unshaped\n  download: unshaped\n";
  load(with_default("64", "64", ""), a);
  EXPECT_EQ(text("10.9.9.9"),
            "10.9.9.9: no tariff has it, so it is in the default tariff\n  upload: " +
                std::string(kClass) + "  download: " + kClass);
  for (const GlobalSet& set :
       {test::line(""), with_default("64", nullptr, ""), with_default(nullptr, "64", "")}) {
    load(set, a);
    EXPECT_EQ(text("10.9.9.9"), kUnshaped);
  }
}

TEST_F(WhoTest, OnTheImqDeviceTheFirstByNameHasIt) {
  load(test::line(""), a, test::shaped("b", 5, "10.0.0.1"));
  const Who who = who_has(inet_addr("10.0.0.1"), facts);
  EXPECT_EQ(who.tariffs, (std::vector<std::string>{"b", "a"}));
  EXPECT_EQ(who.ways[0].taken->number, 4U);
}

// Of what is left of a tree in a direction that is not shaped.
TEST_F(WhoTest, ADifferenceWhereNothingIsShaped) {
  load(test::line());
  facts.line.shaping.enabled = false;
  facts.line.shaping.classes.clear();
  for (const auto& [object, count] : std::vector<std::pair<std::string, std::size_t>>{
           {"qdisc 8000:", 1}, {"redirection to ifb_ingr", 1}, {"class 8000:4", 0}}) {
    facts.drift = {drift("eth1", object)};
    EXPECT_EQ(problems(), count) << object;
  }
}

TEST_F(WhoTest, Json) {
  std::string text = json_text({who_has(inet_addr("10.0.0.1"), facts)});
  std::erase_if(text, [](char c) { return c == ' ' || c == '\n'; });
  EXPECT_EQ(text,
            R"({"addresses":[{"address":"10.0.0.1","classes":[{"ceiling":62500,"class":"8000:4",)"
            R"("device":"eth1","direction":"upload","guarantee":62500,"leaf":null,"name":"a"},)"
            R"({"ceiling":125000,"class":"8000:4","device":"ifb_ingr","direction":"download",)"
            R"("guarantee":125000,"leaf":null,"name":"a"}],"connections":[],"download":"class",)"
            R"("mark":2147483652,"number":4,"problems":[],"set_mark":2147483652,)"
            R"("tariffs":["a"],"upload":"class"}]})");
}

}  // namespace
}  // namespace quenby
