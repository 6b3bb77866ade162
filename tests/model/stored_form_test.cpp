#include "model/stored_form.h"

#include <gtest/gtest.h>

#include "tests/support/tariffs.h"

namespace quenby {
namespace {

using test::set_of;

// The tariff's download direction after bringing it to the stored form.
TariffDirSettings stored(const TariffSettings& tariff) {
  TariffSet set = set_of(tariff);
  round_to_stored(set);
  return set.tariffs()[0].download;
}

TariffSettings with_speed(std::int64_t speed) {
  TariffSettings tariff = test::tariff("t");
  tariff.download.speed = speed;
  return tariff;
}

TEST(StoredForm, KeepsWholeKbitsOfATariff) {
  // 1.5 kbit/s are 187 bytes/s and are written as 1.
  EXPECT_EQ(stored(with_speed(187)).speed, 125);
  EXPECT_EQ(stored(with_speed(250'000)).speed, 250'000);
  EXPECT_EQ(stored(with_speed(124)).speed, 0);
}

TEST(StoredForm, KeepsAnEmptySpeedAndMakesOneNeverSetZero) {
  EXPECT_EQ(stored(with_speed(-1)).speed, -1);
  EXPECT_EQ(stored(with_speed(-2)).speed, 0);
}

TEST(StoredForm, KeepsWholeKbitsOfABurstRate) {
  TariffSettings tariff = test::tariff("t");
  tariff.download.burst_rate = 1'999;
  EXPECT_EQ(stored(tariff).burst_rate, 1'000);
  tariff.download.burst_rate = -1;
  EXPECT_EQ(stored(tariff).burst_rate, 0);
}

TEST(StoredForm, KeepsTheFactorOfTheAggregationText) {
  TariffSettings tariff = test::tariff("t");
  tariff.setAggregation("5");
  EXPECT_EQ(stored(tariff).aggregation, 5.0);
  // The text is 0 now, the factor still 5.
  tariff.setAggregation("0");
  EXPECT_EQ(stored(tariff).aggregation, 1.0);
  tariff.setAggregation("2.5 users");
  EXPECT_EQ(stored(tariff).aggregation, 2.5);
  tariff.upload.aggregation = 7.0;
  TariffSet set = set_of(tariff);
  round_to_stored(set);
  EXPECT_EQ(set.tariffs()[0].upload.aggregation, 2.5);
  EXPECT_EQ(set.tariffs()[0].aggregation_text, "2.5 users");
}

// Where doubles are 1024 bit/s apart the written number can be read back as the one below.
TEST(StoredForm, IsWhatTheLargestNumbersAreReadBackAs) {
  for (const char* text : {"9223372036854774", "9223372036854773", "9007199254740993",
                           "5000000000000001", "72057594037927.9", "9.1e15"}) {
    SCOPED_TRACE(text);
    TariffSettings tariff = test::tariff("t");
    ASSERT_TRUE(tariff.download.setSpeed(text));
    ASSERT_TRUE(_set_rate(text, tariff.download.burst_rate));
    const TariffDirSettings once = stored(tariff);
    TariffDirSettings again(true);
    ASSERT_TRUE(again.setSpeed(std::to_string(once.speedKbps())));
    EXPECT_EQ(again.speed, once.speed);
    ASSERT_TRUE(_set_rate(std::to_string(once.burst_rate / 1000), again.burst_rate));
    EXPECT_EQ(again.burst_rate, once.burst_rate);
  }
}

TEST(StoredForm, KeepsTheLow32BitsOfABurstSize) {
  TariffSettings tariff = test::tariff("t");
  tariff.download.burst_size = 4'294'967'296 + 1'500;
  EXPECT_TRUE(can_be_stored(set_of(tariff)));
  EXPECT_EQ(stored(tariff).burst_size, 1'500);
}

TEST(StoredForm, HasNoPlaceForABurstSizeThatWouldBeWrittenNegative) {
  TariffSettings tariff = test::tariff("t");
  tariff.upload.burst_size = 2'147'483'647;
  EXPECT_TRUE(can_be_stored(set_of(tariff)));
  tariff.upload.burst_size = 2'147'483'648;
  EXPECT_FALSE(can_be_stored(set_of(tariff)));
}

TEST(StoredForm, OfGlobalSettingsKeepsWhatWasNeverSet) {
  GlobalSet set;
  set.global.download.speed = 187;
  set.defaults.upload.speed = 187;
  set.defaults.upload.ceiling = 187;
  round_to_stored(set);
  EXPECT_EQ(set.global.download.speed, 125);
  EXPECT_EQ(set.global.upload.speed, -2);
  EXPECT_EQ(set.defaults.upload.speed, 125);
  EXPECT_EQ(set.defaults.upload.ceiling, 125);
  EXPECT_EQ(set.defaults.download.speed, -2);
  EXPECT_EQ(set.defaults.download.ceiling, 0);
}

}  // namespace
}  // namespace quenby
