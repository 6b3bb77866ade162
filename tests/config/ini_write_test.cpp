#include "tests/config/ini_fixture.h"

// The exact text that is written.
namespace quenby {
namespace {

using test::set_of;
using test::tariff;

using IniWrite = test::IniFile;

TEST_F(IniWrite, ATariffWithOneSpeedIsThreeLines) {
  TariffSettings t = tariff("a");
  t.download.setSpeed("1000");
  EXPECT_EQ(written(set_of(t)), "[a]\ndownload_speed=1000\nupload_speed=0\n");
}

TEST_F(IniWrite, AnEmptySetIsAnEmptyFile) { EXPECT_EQ(written(TariffSet()), ""); }

TEST_F(IniWrite, TariffsFollowTheOrderOfTheSet) {
  EXPECT_EQ(written(set_of(tariff("b", 5), tariff("a", 4))),
            "[b]\nid=5\ndownload_speed=0\nupload_speed=0\n"
            "[a]\nid=4\ndownload_speed=0\nupload_speed=0\n");
}

TEST_F(IniWrite, SpeedsAreWholeKilobits) {
  TariffSettings t = tariff("a");
  t.download.setSpeed("1.999");  // 249 bytes/s
  t.upload.setSpeed("-5");
  EXPECT_EQ(written(set_of(t)), "[a]\ndownload_speed=1\nupload_speed=-1\n");
}

TEST_F(IniWrite, TheAggregationTextIsKeptUnlessItIsExactlyOne) {
  TariffSettings t = tariff("a");
  t.setAggregation("1");
  EXPECT_EQ(written(set_of(t)), "[a]\ndownload_speed=0\nupload_speed=0\n");
  for (const char* text : {"1.0", "0", "01", "2 users", "1e0"}) {
    SCOPED_TRACE(text);
    t.setAggregation(text);
    EXPECT_EQ(written(set_of(t)),
              "[a]\naggregation=" + std::string(text) + "\ndownload_speed=0\nupload_speed=0\n");
  }
}

TEST_F(IniWrite, BurstRatesAreWholeKilobitsUnlessThatIsZero) {
  const struct {
    std::int64_t rate;
    const char* line;
  } rows[] = {{0, ""},
              {999, ""},
              {-1, ""},
              {1000, "upload_burst_rate=1\n"},
              {1999, "upload_burst_rate=1\n"},
              {2'000'000, "upload_burst_rate=2000\n"}};
  for (const auto& row : rows) {
    SCOPED_TRACE(row.rate);
    TariffSettings t = tariff("a");
    t.upload.burst_rate = row.rate;
    EXPECT_EQ(written(set_of(t)),
              std::string("[a]\ndownload_speed=0\nupload_speed=0\n") + row.line);
  }
}

TEST_F(IniWrite, OnlyTheLow32BitsOfABurstSizeAreKept) {
  const struct {
    std::int64_t size;
    const char* line;
  } rows[] = {{0, ""},
              {1500, "download_burst_size=1500\n"},
              {2'147'483'647, "download_burst_size=2147483647\n"},
              {2'147'483'648, "download_burst_size=-2147483648\n"},
              {4'294'967'295, "download_burst_size=-1\n"},
              {4'294'967'296, ""},
              {4'294'967'301, "download_burst_size=5\n"}};
  for (const auto& row : rows) {
    SCOPED_TRACE(row.size);
    TariffSettings t = tariff("a");
    t.download.burst_size = row.size;
    EXPECT_EQ(written(set_of(t)),
              "[a]\ndownload_speed=0\n" + std::string(row.line) + "upload_speed=0\n");
  }
}

TEST_F(IniWrite, AnUnknownLeafKindIsWrittenAsNone) {
  TariffSettings t = tariff("a");
  t.qdisc = 4;
  EXPECT_EQ(written(set_of(t)), "[a]\ndownload_speed=0\nupload_speed=0\nqueuing_discipline=none\n");
}

TEST_F(IniWrite, AGlobalSetAtItsStartIsTwoLines) {
  EXPECT_EQ(written(GlobalSet()), "[global]\nenabled=true\n");
}

TEST_F(IniWrite, TheDefaultSectionIsWrittenOnlyWhenItWasSeen) {
  GlobalSet set;
  set.defaults.download.setSpeed("2000");
  EXPECT_EQ(written(set), "[global]\nenabled=true\n");
  set.has_default = true;
  EXPECT_EQ(written(set), "[global]\nenabled=true\n[defaultqosipqueue]\ndownload_speed=2000\n");
  set.defaults.upload.setSpeed("");
  EXPECT_EQ(written(set),
            "[global]\nenabled=true\n[defaultqosipqueue]\ndownload_speed=2000\nupload_speed=-1\n");
}

TEST_F(IniWrite, GlobalLinesStandInOrder) {
  GlobalSet set;
  set.global.wan = "eth1";
  set.global.enabled = false;
  set.global.download.speed = 0;
  set.global.upload.setSpeed("1.5");
  EXPECT_EQ(written(set), "[global]\ndownload_speed=0\nupload_speed=1\nwan=eth1\nenabled=false\n");
}

TEST_F(IniWrite, FailsOnAStreamThatIsNotOpen) {
  std::ofstream closed;
  EXPECT_FALSE(TariffSet().write(closed));
  EXPECT_FALSE(set_of(tariff("a")).write(closed));
  EXPECT_FALSE(GlobalSet().write(closed));
}

}  // namespace
}  // namespace quenby
