#include "cli/config_input.h"

#include <gtest/gtest.h>

#include "cli/refused.h"
#include "tests/support/tariffs.h"

namespace quenby {
namespace {

// The message of what is refused; empty for what is not.
template <typename Operation>
std::string refusal(const Operation& operation) {
  try {
    operation();
  } catch (const Refused& refused) {
    EXPECT_TRUE(refused.error());
    return refused.what();
  }
  return "";
}

TariffConfig with_burst_size(std::int64_t size) {
  TariffSettings tariff = test::tariff("a", 4);
  tariff.download.speed = 187;
  tariff.download.burst_size = size;
  return test::set_of<TariffConfig>(tariff);
}

TEST(WholeSave, WritesValuesAsTheyAreStored) {
  TariffConfig tariffs = with_burst_size(2'147'483'647);
  prepare_whole_save(tariffs);
  EXPECT_EQ(tariffs.tariffs()[0].download.speed, 125);
  EXPECT_EQ(tariffs.tariffs()[0].download.burst_size, 2'147'483'647);
  TariffConfig none;
  prepare_whole_save(none);
  EXPECT_TRUE(none.empty());
}

TEST(WholeSave, EndsBeforeAValueThatNoReaderWouldTake) {
  for (const std::int64_t size : {2'147'483'648, 3'000'000'000, 4'294'967'295}) {
    SCOPED_TRACE(size);
    TariffConfig tariffs = with_burst_size(size);
    EXPECT_EQ(refusal([&] { prepare_whole_save(tariffs); }), "wrong current tariff configuration");
  }
}

TEST(NumberingAnew, GivesNumbersThatFitAndValuesAsTheyAreStored) {
  TariffConfig tariffs = with_burst_size(1'500);
  tariffs.addTariff(test::tariff("b", 4));
  tariffs.addTariff(test::tariff("b", 3));
  renumber(tariffs);
  EXPECT_EQ(test::ids(tariffs), (std::vector<int>{4, 5, 6}));
  EXPECT_EQ(tariffs.tariffs()[0].download.speed, 125);
}

TEST(NumberingAnew, EndsWhereItCannotSucceed) {
  TariffConfig unstorable = with_burst_size(3'000'000'000);
  EXPECT_EQ(refusal([&] { renumber(unstorable); }), "wrong current tariff configuration");
  TariffConfig many;
  for (int i = 0; i < 15'997; ++i) many.addTariff(test::tariff(std::to_string(i)));
  EXPECT_EQ(refusal([&] { renumber(many); }), "wrong tariff configuration");
}

}  // namespace
}  // namespace quenby
