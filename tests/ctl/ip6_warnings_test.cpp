#include "tests/ctl/warnings_fixture.h"

// The warnings about IPv6, and what is like it and meant.
namespace quenby {
namespace {

using test::only_text;
using test::places;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

constexpr const char* kSpeeds = "download_speed=1\nupload_speed=1\n";
constexpr const char* kShaped = "[global]\nenabled=true\nwan=eth1\nipv6=true\n";

class Ip6Warnings : public test::Warnings {
 protected:
  Findings of_whole(const std::string& line_text, const std::string& tariff_text,
                    bool tariffs_alone = false) const {
    auto global = line(line_text);
    global.asked_for = !tariffs_alone;
    const auto all = tariffs(tariff_text);
    EXPECT_THAT(global.errors, IsEmpty()) << line_text;
    EXPECT_THAT(all.errors, IsEmpty()) << tariff_text;
    Findings findings;
    warn_of_ipv6({&global, &all, {}}, findings);
    return findings;
  }
};

TEST_F(Ip6Warnings, AreNoneForWhatIsMeant) {
  const std::string meant = std::string("[a]\nip6=2001:db8::/56\nip6=2001:db8:1::7\n") + kSpeeds +
                            "[b]\nIP6 = 2001:DB8:0:1::/64\n" + kSpeeds;
  EXPECT_THAT(places(of_tariffs(meant)), IsEmpty());
  EXPECT_THAT(places(of_whole(kShaped, meant)), IsEmpty());
  EXPECT_THAT(places(of_line(kShaped)), IsEmpty());
  EXPECT_THAT(places(of_whole("[global]\nipv6=false\n", "[a]\nip=10.0.0.1\n")), IsEmpty());
}

TEST_F(Ip6Warnings, OfBitsAfterThePrefix) {
  EXPECT_EQ(only_text(of_tariff("ip6=2001:DB8:0:1FF::5/56\n")),
            "\"2001:DB8:0:1FF::5/56\" is stored as 2001:db8:0:100::/56: the bits after the prefix "
            "are cleared");
  EXPECT_THAT(places(of_tariff("ip6=2001:db8::/64\nip6=2001:db8::1/127\nip6=2001:db8:1::/47\n")),
              ElementsAre("6:5 host-bits", "7:5 host-bits"));
  EXPECT_THAT(places(of_tariff("ip6=2001:0db8:0::/64\nip6=2001:DB8::5/128\nip6=2001:db8::6\n")),
              IsEmpty());
}

TEST_F(Ip6Warnings, OfAPrefixThatStandsTwice) {
  EXPECT_EQ(only_text(of_tariff("ip6=2001:db8::/64\nip6=2001:DB8:0::/64\n")),
            "2001:db8::/64 stands in this tariff already (line 5)");
  const std::string one = "ip6=2001:db8::7\n[b]\n" + std::string(kSpeeds);
  EXPECT_EQ(only_text(of_tariff(one + "ip6=2001:db8::7/128\n")),
            "2001:db8::7 stands in tariff \"a\" too (line 5): it belongs to one of them");
  // Of nested prefixes the longest counts.
  EXPECT_THAT(places(of_tariff(one + "ip6=2001:db8::/64\nip6=2001:db8::/56\nip6=2001:db8::8\n")),
              IsEmpty());
}

TEST_F(Ip6Warnings, OfATariffWithNeitherAddressNorPrefix) {
  EXPECT_THAT(places(of_tariffs(std::string("[a]\n") + kSpeeds)), ElementsAre("1:2 no-address"));
  EXPECT_THAT(places(of_tariffs(std::string("[a]\nip6=2001:db8::/64\n") + kSpeeds)), IsEmpty());
}

TEST_F(Ip6Warnings, OfPrefixesWithoutEffect) {
  const std::string some =
      "[a]\nip=10.0.0.1\n[b]\nip=10.0.0.2\nip6=2001:db8::/64\n"
      "ip6=2001:db8:1::/64\n[c]\nip=10.0.0.3\nip6=2001:db8:2::/64\n";
  EXPECT_EQ(only_text(of_whole("[global]\nwan=eth1\n", some)),
            "no \"ip6\" has an effect: the line has no \"ipv6=true\"");
  EXPECT_THAT(places(of_whole("[global]\nwan=eth1\nipv6=false\n", some)),
              ElementsAre("5:5 ipv6-off"));
  EXPECT_EQ(only_text(of_whole("[global]\nipv6=true\n", some, true)),
            "no \"ip6\" has an effect: the line has no \"wan\"");
  EXPECT_THAT(places(of_whole("[global]\nipv6=true\n[global]\nwan=eth1\n", some)),
              ElementsAre("5:5 ipv6-off"));
}

TEST_F(Ip6Warnings, OfATariffThatGetsNoClassWithoutIpv6) {
  const std::string some = "[a]\nip=10.0.0.1\n[b]\nip6=2001:db8::/64\n[c]\nip6=2001:db8:1::/64\n";
  const Findings findings = of_whole("[global]\nwan=eth1\n", some);
  EXPECT_THAT(places(findings), ElementsAre("3:2 no-address", "4:5 ipv6-off", "5:2 no-address"));
  EXPECT_EQ(findings.front().text,
            "tariff \"b\" has IPv6 prefixes alone and gets no class: IPv6 is not shaped");
}

TEST_F(Ip6Warnings, OfALineThatCannotShapeIt) {
  const std::string none = "[a]\nip=10.0.0.1\n";
  const Findings findings = of_whole("[global]\nenabled=true\nipv6=true\n", none);
  EXPECT_THAT(places(findings), ElementsAre("3:6 ipv6-without-wan"));
  EXPECT_EQ(only_text(findings),
            "ipv6=true has no effect without \"wan\": IPv6 is shaped on a WAN interface alone");
  EXPECT_THAT(places(of_whole("[global]\nipv6=true\n[global]\nipv6=false\n", none)), IsEmpty());
}

TEST_F(Ip6Warnings, AreNoneWithoutALine) {
  const auto all = tariffs("[a]\nip6=2001:db8::/64\n");
  Findings findings;
  warn_of_ipv6({nullptr, &all, {}}, findings);
  EXPECT_THAT(findings, IsEmpty());
}

TEST_F(Ip6Warnings, OfAFileThatNobodyAskedForAreNone) {
  auto all = tariffs("[a]\nip6=2001:db8::/64\n");
  all.asked_for = false;
  const auto global = line("[global]\nipv6=true\n");
  Findings findings;
  warn_of_ipv6({&global, &all, {}}, findings);
  EXPECT_THAT(places(findings), ElementsAre("2:6 ipv6-without-wan"));
}

std::string prefixes(int count) {
  std::string text;
  for (int i = 0; i < count; ++i) {
    char line[32];
    std::snprintf(line, sizeof(line), "ip6=2001:db8:%x:%x::/64\n", i / 65536, i % 65536);
    text += line;
  }
  return "[a]\ndownload_speed=1\nupload_speed=1\nip=10.0.0.1\n" + text;
}

TEST_F(Ip6Warnings, OfMorePrefixesThanTheSetHolds) {
  EXPECT_THAT(places(of_tariffs(prefixes(65536))), IsEmpty());
  EXPECT_THAT(places(of_tariffs(prefixes(65538))), ElementsAre("65541:5 too-many-prefixes"));
}

// A tariff of prefixes alone shares the line where they count.
TEST_F(Ip6Warnings, OfGuaranteesAndBurstsWherePrefixesCount) {
  const std::string some =
      "[a]\nip6=2001:db8::/64\ndownload_speed=2000\nupload_speed=100\n"
      "upload_burst_size=3435974\n";
  const std::string line = "[global]\nwan=eth1\ndownload_speed=1000\n";
  EXPECT_THAT(places(of_both(line, some)), IsEmpty());
  EXPECT_THAT(places(of_both(line + "ipv6=true\n", some)),
              ElementsAre("3:16 oversubscribed", "5:19 long-burst"));
}

}  // namespace
}  // namespace quenby
