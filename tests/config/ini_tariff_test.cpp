#include <arpa/inet.h>

#include "tests/config/ini_fixture.h"

// Tariff files.
namespace quenby {
namespace {

using test::ids;
using test::names;
using test::tariff;
using testing::ElementsAre;
using testing::IsEmpty;

using IniTariff = test::IniFile;

const char* const kWhole =
    "[gold]\n"
    "id=4\n"
    "ip=10.0.0.1\n"
    "ip=10.0.1.0/24\n"
    "aggregation=2.5\n"
    "download_speed=10000\n"
    "download_burst_rate=20000\n"
    "download_burst_size=15000\n"
    "upload_speed=5000\n"
    "upload_burst_rate=9000\n"
    "upload_burst_size=1500\n"
    "queuing_discipline=fq_codel\n";

TEST_F(IniTariff, EveryKeyReachesItsField) {
  TariffSet set;
  EXPECT_TRUE(parse(kWhole, set));
  ASSERT_THAT(names(set), ElementsAre("gold"));
  const TariffSettings& t = set.tariffs()[0];
  EXPECT_EQ(t.id, 4);
  EXPECT_THAT(t.addresses, ElementsAre(htonl(0x0a000001), htonl(0x0a000100)));
  EXPECT_THAT(t.address_texts, ElementsAre("10.0.0.1", "10.0.1.0/24"));
  EXPECT_EQ(t.aggregation_text, "2.5");
  EXPECT_EQ(t.download.aggregation, 2.5);
  EXPECT_EQ(t.upload.aggregation, 2.5);
  EXPECT_EQ(t.download.speed, 1'250'000);
  EXPECT_EQ(t.download.burst_rate, 20'000'000);
  EXPECT_EQ(t.download.burst_size, 15'000);
  EXPECT_EQ(t.upload.speed, 625'000);
  EXPECT_EQ(t.upload.burst_rate, 9'000'000);
  EXPECT_EQ(t.upload.burst_size, 1500);
  EXPECT_EQ(t.qdisc, 3);
}

TEST_F(IniTariff, WrittenAndReadAgainIsTheSame) {
  const std::string second =
      "[a b]\nid=15999\ndownload_speed=0\nupload_speed=-1\n"
      "[c]\nid=9\nip=1.2.3.4/x\naggregation=0\ndownload_speed=1\nupload_speed=1\n"
      "queuing_discipline=pfifo\n";
  TariffSet first;
  EXPECT_TRUE(parse(kWhole + second, first));
  EXPECT_EQ(written(first), kWhole + second);
  TariffSet again;
  EXPECT_TRUE(parse(written(first), again));
  EXPECT_EQ(again.tariffs(), first.tariffs());
  EXPECT_EQ(again.tariffs()[2].address_texts, first.tariffs()[2].address_texts);
}

TEST_F(IniTariff, ARepeatedKeyAppliesAgain) {
  TariffSet set;
  EXPECT_TRUE(parse("[a]\ndownload_speed=8\nip=10.0.0.1\ndownload_speed=16\nip=10.0.0.1\n", set));
  EXPECT_EQ(set.tariffs()[0].download.speed, 2000);
  EXPECT_EQ(set.tariffs()[0].addresses.size(), 2U);
}

TEST_F(IniTariff, NothingPassesFromOneSectionToTheNext) {
  TariffSet set;
  EXPECT_TRUE(parse(std::string(kWhole) + "[b]\n", set));
  EXPECT_TRUE(set.tariffs()[1] == tariff("b"));
}

TEST_F(IniTariff, SectionsKeepTheOrderOfTheFileUntilTheyAreSorted) {
  TariffSet set;
  EXPECT_TRUE(parse("[c]\nid=6\n[a]\nid=9\n[B]\nid=4\n[a]\nid=5\n", set));
  EXPECT_THAT(names(set), ElementsAre("c", "a", "B", "a"));
  set.sort();
  EXPECT_THAT(names(set), ElementsAre("B", "a", "a", "c"));
  EXPECT_EQ(set.find("B")->id, 4);
  EXPECT_EQ(set.find("c")->id, 6);
  EXPECT_TRUE(set.exists("a"));
}

TEST_F(IniTariff, RefusedValuesAreFailures) {
  for (const char* line : {"id=0",
                           "id=16000",
                           "id=-3",
                           "id=x",
                           "id=nan",
                           "ip=10.0.0",
                           "ip=::1",
                           "ip=host",
                           "ip=10.0.0.1 10.0.0.2",
                           "aggregation=x",
                           "aggregation=-1",
                           "aggregation=nan",
                           "download_speed=1e300",
                           "upload_speed=inf",
                           "download_burst_rate=1e300",
                           "upload_burst_rate=nan",
                           "download_burst_size=-1",
                           "upload_burst_size=x",
                           "download_burst_size=nan",
                           "speed=1",
                           "burst=1",
                           "ceiling=1",
                           "name=b"}) {
    SCOPED_TRACE(line);
    TariffSet set;
    EXPECT_FALSE(parse("[a]\nid=9\n" + std::string(line) + "\n[b]\n", set));
    EXPECT_THAT(names(set), ElementsAre("a"));
    EXPECT_THAT(ids(set), ElementsAre(9));
    EXPECT_THAT(set.tariffs()[0].addresses, IsEmpty());
  }
}

TEST_F(IniTariff, CuriousValuesThatAreTaken) {
  TariffSet set;
  EXPECT_TRUE(
      parse("[a]\nid=15999.7\ndownload_speed=100mbit\nupload_speed=-5\n"
            "download_burst_rate=x\ndownload_burst_size=1500.9\naggregation=0\n"
            "queuing_discipline=codel\nip=10.0.0.1/99\n",
            set));
  const TariffSettings& t = set.tariffs()[0];
  EXPECT_EQ(t.id, 15'999);
  EXPECT_EQ(t.download.speed, 12'500);
  EXPECT_EQ(t.upload.speed, -1);
  EXPECT_EQ(t.download.burst_rate, -1);
  EXPECT_EQ(t.download.burst_size, 1500);
  EXPECT_EQ(t.download.aggregation, 1.0);
  EXPECT_EQ(t.qdisc, 0);
}

TEST_F(IniTariff, AStoredTariffNeedsANumber) {
  for (const char* text : {"[a]\n", "[a]\nip=10.0.0.1\n[b]\nid=4\n"}) {
    SCOPED_TRACE(text);
    TariffConfig config;
    TariffSet set;
    EXPECT_TRUE(parse(text, set));
    EXPECT_FALSE(parse(text, config));
    EXPECT_THAT(names(config), IsEmpty());
  }
}

TEST_F(IniTariff, StoredNumbersRaiseTheCounter) {
  TariffConfig config;
  EXPECT_TRUE(parse("[a]\nid=4\n[b]\nid=90\n[c]\nid=7\n", config));
  TariffSet fresh = test::set_of(tariff("d"));
  EXPECT_TRUE(config.addIDs(fresh));
  EXPECT_THAT(ids(fresh), ElementsAre(91));
}

TEST_F(IniTariff, SectionsInAnyOrderAreFoundByNumber) {
  TariffConfig config;
  EXPECT_TRUE(parse("[z]\nid=4\n[m]\nid=9\n[a]\nid=6\n", config));
  config.sort();
  TariffSettings out;
  EXPECT_TRUE(config.orderedByID().get(9, out));
  EXPECT_EQ(out.name, "m");
  EXPECT_TRUE(config.orderedByID().get(4, out));
  EXPECT_EQ(out.name, "z");
  EXPECT_FALSE(config.orderedByID().get(5, out));
}

}  // namespace
}  // namespace quenby
