#include "tests/config/ini_fixture.h"

// The exact text that is written.
namespace quenby {
namespace {

using test::set_of;
using test::tariff;

using IniWrite = test::IniFile;

// What is written of a tariff "a" with these values.
struct Row {
  void (*set)(TariffSettings&);
  const char* lines;
};

TEST_F(IniWrite, ATariffsLines) {
  const Row rows[] = {
      {[](TariffSettings& t) { t.download.setSpeed("1000"); },
       "download_speed=1000\nupload_speed=0\n"},
      // Whole kilobits: 249 bytes/s.
      {[](TariffSettings& t) { t.download.setSpeed("1.999"); },
       "download_speed=1\nupload_speed=0\n"},
      {[](TariffSettings& t) { t.upload.setSpeed("-5"); }, "download_speed=0\nupload_speed=-1\n"},
      {[](TariffSettings& t) { t.qdisc = 4; },
       "download_speed=0\nupload_speed=0\nqueuing_discipline=none\n"},
  };
  for (const Row& row : rows) {
    TariffSettings t = tariff("a");
    row.set(t);
    EXPECT_EQ(written(set_of(t)), std::string("[a]\n") + row.lines);
  }
}

TEST_F(IniWrite, TariffsFollowTheOrderOfTheSet) {
  EXPECT_EQ(written(set_of(tariff("b", 5), tariff("a", 4))),
            "[b]\nid=5\ndownload_speed=0\nupload_speed=0\n"
            "[a]\nid=4\ndownload_speed=0\nupload_speed=0\n");
  EXPECT_EQ(written(TariffSet()), "");
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

// Whole kilobits, and no line where that is 0; the low 32 bits of a size.
TEST_F(IniWrite, BurstsAreWrittenUnlessTheyAreZero) {
  const struct {
    std::int64_t rate, size;
    const char* lines;
  } rows[] = {
      {0, 0, ""},
      {999, 0, ""},
      {-1, 0, ""},
      {1000, 0, "upload_burst_rate=1\n"},
      {1999, 0, "upload_burst_rate=1\n"},
      {2'000'000, 0, "upload_burst_rate=2000\n"},
      {0, 1500, "upload_burst_size=1500\n"},
      {0, 2'147'483'647, "upload_burst_size=2147483647\n"},
      {0, 2'147'483'648, "upload_burst_size=-2147483648\n"},
      {0, 4'294'967'295, "upload_burst_size=-1\n"},
      {0, 4'294'967'296, ""},
      {0, 4'294'967'301, "upload_burst_size=5\n"},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(testing::Message() << row.rate << ' ' << row.size);
    TariffSettings t = tariff("a");
    t.upload.burst_rate = row.rate;
    t.upload.burst_size = row.size;
    EXPECT_EQ(written(set_of(t)),
              std::string("[a]\ndownload_speed=0\nupload_speed=0\n") + row.lines);
  }
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
