#include "tests/ctl/warnings_fixture.h"

// What is accepted but surely not meant, and what is like it and meant.
namespace quenby {
namespace {

using test::kMbit;
using test::only_text;
using test::places;
using test::Warnings;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

TEST_F(Warnings, AreNoneForWhatIsMeant) {
  EXPECT_THAT(places(of_tariff("")), IsEmpty());
  EXPECT_THAT(places(of_tariffs("")), IsEmpty());
  EXPECT_THAT(places(of_line("")), IsEmpty());
  EXPECT_THAT(places(of_line("[global]\nwan=eth1\nenabled=true\ndownload_speed=900000\n"
                             "[defaultqosipqueue]\nupload_speed=1e3\n")),
              IsEmpty());
}

TEST_F(Warnings, OfTextAfterANumber) {
  EXPECT_EQ(only_text(of_tariff("download_speed=100mbit\n")),
            "\"100mbit\" is read as 100 kbit/s: \"mbit\" is ignored");
  EXPECT_EQ(only_text(of_tariff("upload_burst_size=15k\n")),
            "\"15k\" is read as 15 bytes: \"k\" is ignored");
  EXPECT_EQ(only_text(of_tariff("aggregation=1:2\n")), "\"1:2\" is read as 1: \":2\" is ignored");
  EXPECT_EQ(only_text(of_tariff("id=4 5\n")), "\"4 5\" is read as 4: \" 5\" is ignored");
  EXPECT_THAT(places(of_tariff("upload_speed = 1 gbit\n")), ElementsAre("5:16 text-after-number"));
  EXPECT_THAT(places(of_line("[global]\nenabled=true\nupload_speed=2e3x\n")),
              ElementsAre("3:14 text-after-number"));
}

TEST_F(Warnings, AreNoneForANumberInAnyForm) {
  for (const char* number : {"100", "1e3", "0x64", "+7", "100.0", "1E+2", "\t100 \r"}) {
    EXPECT_THAT(places(of_tariff(std::string("download_speed=") + number + "\n")), IsEmpty())
        << number;
  }
  EXPECT_THAT(places(of_line("[global]\nwan=eth1 mbit\nenabled=true\n")), IsEmpty());
}

TEST_F(Warnings, OfAPrefixLengthThatWidensNothing) {
  EXPECT_THAT(places(of_tariff("ip=10.0.0.0/24\nip=10.0.1.0/\nip=10.0.2.0/032\n")),
              ElementsAre("5:4 prefix-length", "6:4 prefix-length", "7:4 prefix-length"));
  EXPECT_EQ(only_text(of_tariff("ip=10.0.0.0/24\n")),
            "\"10.0.0.0/24\" is the address 10.0.0.0 alone: what stands after it widens nothing");
  EXPECT_THAT(places(of_tariff("ip=10.0.0.0/32\nip=10.0.0.1\n")), IsEmpty());
}

TEST_F(Warnings, OfAnUnknownQueueingDiscipline) {
  EXPECT_THAT(places(of_tariff("queuing_discipline=SFQ\n")), ElementsAre("5:20 unknown-queue"));
  EXPECT_THAT(places(of_tariff("queuing_discipline=cake\n")), ElementsAre("5:20 unknown-queue"));
  for (const char* name : {"sfq", "pfifo", "fq_codel", "none"})
    EXPECT_THAT(places(of_tariff(std::string("queuing_discipline=") + name + "\n")), IsEmpty());
}

TEST_F(Warnings, OfAnAddressThatStandsTwice) {
  EXPECT_EQ(only_text(of_tariff("ip=10.0.0.9/32\n")),
            "10.0.0.9 stands in this tariff already (line 2)");
  const std::string speeds = "download_speed=1\nupload_speed=1\n";
  EXPECT_EQ(only_text(of_tariff("[b]\nip=10.0.0.9\n" + speeds)),
            "10.0.0.9 stands in tariff \"a\" too (line 2): it belongs to one of them");
  EXPECT_THAT(places(of_tariff("ip=10.0.0.1\n[b]\nip=10.0.1.9\n" + speeds)), IsEmpty());
  // Two stored sections of one name are two tariffs.
  EXPECT_EQ(only_text(of_tariff("id=4\n[a]\nid=5\nip=10.0.0.9\n" + speeds, FileKind::stored)),
            "10.0.0.9 stands in tariff \"a\" too (line 2): it belongs to one of them");
}

TEST_F(Warnings, OfATariffWithoutAddress) {
  const std::string speeds = "download_speed=1\nupload_speed=1\n";
  EXPECT_EQ(only_text(of_tariffs("[a b]\n" + speeds)),
            "tariff \"a b\" has no address and gets no class");
  EXPECT_THAT(places(of_tariffs("\n[ a ]\n" + speeds)), ElementsAre("2:3 no-address"));
}

TEST_F(Warnings, OfASpeedThatIsNeverSet) {
  EXPECT_EQ(only_text(of_tariffs("[a]\nip=10.0.0.1\nupload_speed=1\n")),
            "tariff \"a\" has no download_speed: it is stored as 0, and nothing passes");
  EXPECT_EQ(only_text(of_tariffs("[a]\nid=4\nip=10.0.0.1\ndownload_speed=1\n", FileKind::stored)),
            "tariff \"a\" has no upload_speed: it gets no class in this direction");
  EXPECT_THAT(places(of_tariffs("[a]\nip=10.0.0.1\n")),
              ElementsAre("1:2 no-speed", "1:2 no-speed"));
  EXPECT_THAT(places(of_tariffs("[a]\nip=10.0.0.1\nupload_speed=0\ndownload_speed=0\n")),
              IsEmpty());
}

TEST_F(Warnings, OfANegativeSpeed) {
  EXPECT_EQ(only_text(of_tariff("upload_speed=-5\n")),
            "\"-5\" is read as -1, which stands for no speed");
  EXPECT_EQ(only_text(of_tariff("upload_speed=fast\n")),
            "\"fast\" is no number and is read as -1, which stands for no speed");
  EXPECT_THAT(places(of_tariff("upload_burst_size=1\nupload_burst_rate=-1\n")),
              ElementsAre("6:19 negative-speed"));
  EXPECT_THAT(places(of_line("[global]\nenabled=true\nupload_speed=-1\n[defaultqosipqueue]\n"
                             "download_speed=x\n")),
              ElementsAre("3:14 negative-speed", "5:16 negative-speed"));
  EXPECT_THAT(places(of_tariff("upload_speed=-0\n")), IsEmpty());
}

TEST_F(Warnings, OfABurstRateWithoutASize) {
  EXPECT_EQ(only_text(of_tariff("download_burst_rate=5\n")),
            "a burst rate without download_burst_size has no effect");
  EXPECT_THAT(places(of_tariff("upload_burst_rate=5\nupload_burst_size=0\n")),
              ElementsAre("5:19 burst-without-size"));
  EXPECT_THAT(places(of_tariff("download_burst_rate=5\ndownload_burst_size=9\n")), IsEmpty());
  EXPECT_THAT(places(of_tariff("download_burst_rate=0\nupload_burst_size=9\n")), IsEmpty());
}

TEST_F(Warnings, OfABurstLongerThanTheKernelCarries) {
  // 274.877906944 s at 12,500 bytes/s are 3,435,973 bytes.
  EXPECT_EQ(only_text(of_tariff("download_burst_size=3435974\n")),
            "a burst of 3435974 bytes takes too long at the guaranteed 100 kbit/s: the kernel is "
            "given 3435973");
  EXPECT_THAT(places(of_tariff("download_burst_size=3435973\nupload_burst_size=1\n")), IsEmpty());
  EXPECT_THAT(places(of_tariff("upload_burst_size=3000000\naggregation=2\n")),
              ElementsAre("5:19 long-burst"));
}

TEST_F(Warnings, OfAnAggregationOf0) {
  EXPECT_THAT(places(of_tariff("aggregation=0\n")), ElementsAre("5:13 aggregation-0"));
  EXPECT_THAT(places(of_tariff("aggregation=0.0\n")), ElementsAre("5:13 aggregation-0"));
  EXPECT_THAT(places(of_tariff("aggregation=0.5\n")), IsEmpty());
}

TEST_F(Warnings, OfALineThatIsNotEnabled) {
  EXPECT_THAT(places(of_line("[global]\nwan=eth1\n")), ElementsAre("1:2 not-enabled"));
  EXPECT_THAT(places(of_line("[global]\nenabled=true\n[global]\n")),
              ElementsAre("3:2 not-enabled"));
  EXPECT_THAT(places(of_line("[global]\n[global]\nenabled=false\n")), IsEmpty());
  EXPECT_THAT(places(of_line("[defaultqosipqueue]\n")), IsEmpty());
}

std::string addresses(int count) {
  std::string text;
  for (int i = 0; i < count; ++i)
    text += "ip=10." + std::to_string(i / 65536) + "." + std::to_string(i / 256 % 256) + "." +
            std::to_string(i % 256) + "\n";
  return "[a]\ndownload_speed=1\nupload_speed=1\n" + text;
}

TEST_F(Warnings, OfMoreAddressesThanTheSetHolds) {
  EXPECT_THAT(places(of_tariffs(addresses(65536))), IsEmpty());
  EXPECT_THAT(places(of_tariffs(addresses(65538))), ElementsAre("65540:4 too-many-addresses"));
}

TEST_F(Warnings, OfFractionsThatAreCut) {
  EXPECT_EQ(only_text(of_tariff("download_speed=1000.5\n")),
            "\"1000.5\" is stored as 1000 kbit/s: the fraction is cut");
  EXPECT_THAT(places(of_tariff("upload_burst_size=1500.9\nid=4.5\nupload_burst_rate=1e-1\n")),
              ElementsAre("5:19 fraction", "6:4 fraction", "7:19 fraction"));
  EXPECT_THAT(places(of_line("[global]\nenabled=true\nupload_speed=0.5\n")),
              ElementsAre("3:14 fraction"));
  EXPECT_THAT(places(of_tariff("aggregation=2.5\nupload_speed=1e0\n")), IsEmpty());
}

constexpr const char* kTariff = "[a]\nip=10.0.0.1\ndownload_speed=2000\nupload_speed=1000\n";

TEST_F(Warnings, OfASpeedAboveThePorts) {
  const std::string line = "[global]\nenabled=true\nupload_speed=1001\ndownload_speed=1000\n";
  EXPECT_EQ(only_text(of_both(line, "", kMbit)),
            "1001 kbit/s is above the 1000 kbit/s of the port, to which it is cut");
  EXPECT_THAT(places(of_both("", kTariff, kMbit)),
              ElementsAre("3:16 above-port", "3:16 oversubscribed"));
  EXPECT_THAT(places(of_both("", kTariff, 2 * kMbit)), IsEmpty());
  EXPECT_THAT(places(of_both(line, kTariff, 900 * kMbit)), ElementsAre("4:16 oversubscribed"));
  EXPECT_THAT(places(of_both("[defaultqosipqueue]\nupload_speed=5000\n", "", kMbit)),
              ElementsAre("2:14 above-port", "2:14 oversubscribed"));
}

TEST_F(Warnings, OfGuaranteesThatOversubscribeTheLimit) {
  const std::string line = "[global]\nenabled=true\ndownload_speed=1000\n";
  EXPECT_EQ(only_text(of_both(line, kTariff)),
            "the guarantees of download come to 2000 kbit/s, the limit is 1000 kbit/s: each tariff "
            "keeps 0.5 of its own, and the default tariff none");
  EXPECT_THAT(places(of_both(line, std::string(kTariff) + "aggregation=2\n")), IsEmpty());
  EXPECT_THAT(places(of_both("[global]\ndownload_speed=0\n", kTariff)), IsEmpty());
  EXPECT_THAT(places(of_both("[global]\ndownload_speed=2000\nupload_speed=1000\n"
                             "[defaultqosipqueue]\nupload_speed=1\n",
                             kTariff)),
              ElementsAre("3:14 oversubscribed"));
}

TEST_F(Warnings, OfAFileThatNobodyAskedForAreNone) {
  auto global = line("[global]\ndownload_speed=1000\nupload_speed=900000\n");
  global.asked_for = false;
  const auto all = tariffs(kTariff);
  Findings findings;
  warn_of_rates({&global, &all, 500 * kMbit}, findings);
  ASSERT_THAT(places(findings), ElementsAre("3:16 oversubscribed"));
  EXPECT_EQ(findings.front().file, all.source->path());
}

// What is refused is not missing.
TEST_F(Warnings, OfSectionsAreNoneBesideErrors) {
  const auto file = tariffs("[a]\nip=10.0.0\ndownload_speed=1x\n");
  EXPECT_EQ(file.errors.size(), 1U);
  Findings findings;
  warn_of_sections(file, FileKind::named, findings);
  EXPECT_THAT(findings, IsEmpty());
  warn_of_values(file, findings);
  EXPECT_THAT(places(findings), ElementsAre("3:16 text-after-number"));
}

}  // namespace
}  // namespace quenby
