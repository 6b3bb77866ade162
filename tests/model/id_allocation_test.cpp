#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "model/tariff_config.h"
#include "tests/support/tariffs.h"

// Class numbers that the stored tariffs hand out and keep.
namespace quenby {
namespace {

using test::ids;
using test::names;
using test::set_of;
using test::tariff;
using testing::ElementsAre;

// As read from a file: the counter follows the numbers.
TariffConfig stored(const std::vector<TariffSettings>& tariffs) {
  TariffConfig config;
  for (const TariffSettings& t : tariffs) {
    EXPECT_TRUE(config.onSection(t.name));
    EXPECT_TRUE(config.onKey(t.name, "id", std::to_string(t.id)));
  }
  EXPECT_TRUE(config.endSection());
  return config;
}

TariffSet numbered_names(int count) {
  TariffSet set;
  for (int i = 0; i < count; ++i) set.addTariff(tariff(std::to_string(100'000 + i)));
  return set;
}

// The number that the next new tariff gets, from a copy.
int next_id(TariffConfig config) {
  TariffSet fresh = set_of(tariff("\xff new"));
  EXPECT_TRUE(config.addIDs(fresh));
  return ids(fresh)[0];
}

TEST(AddIDs, StartWith4) {
  TariffConfig config;
  TariffSet fresh = set_of(tariff("a"), tariff("b"));
  EXPECT_TRUE(config.addIDs(fresh));
  EXPECT_THAT(ids(fresh), ElementsAre(4, 5));
  EXPECT_EQ(fresh.tariffs()[1].download.id, 5);
  EXPECT_EQ(fresh.tariffs()[1].upload.id, 5);
}

TEST(AddIDs, GoOnAfterTheLargestNumberOfTheFile) {
  TariffConfig config = stored({tariff("a", 4), tariff("b", 90), tariff("c", 5)});
  TariffSet fresh = set_of(tariff("x"), tariff("y"));
  EXPECT_TRUE(config.addIDs(fresh));
  EXPECT_THAT(ids(fresh), ElementsAre(91, 92));
}

TEST(AddIDs, StopAtAStoredName) {
  TariffConfig config = stored({tariff("b", 4)});
  TariffSet fresh = set_of(tariff("a"), tariff("b"), tariff("c"));
  EXPECT_FALSE(config.addIDs(fresh));
  EXPECT_THAT(ids(fresh), ElementsAre(5, 0, 0));
  EXPECT_EQ(next_id(config), 6);
}

TEST(AddIDs, NeverUseANumberTwice) {
  TariffConfig config = stored({tariff("a", 4), tariff("b", 5)});
  config.remove(set_of(tariff("b")));
  EXPECT_EQ(next_id(config), 6);
}

TEST(AddIDs, FailWhenNoNumberIsLeft) {
  TariffConfig config = stored({tariff("a", 15'998)});
  TariffSet fresh = set_of(tariff("x"), tariff("y"), tariff("z"));
  EXPECT_FALSE(config.addIDs(fresh));
  EXPECT_THAT(ids(fresh), ElementsAre(15'999, 0, 0));
}

TEST(FillIDs, KeepStoredNumbersAndGiveNewOnes) {
  TariffConfig config = stored({tariff("a", 7), tariff("c", 9)});
  TariffSet fresh = set_of(tariff("c"), tariff("b", 15), tariff("a"), tariff("d"));
  EXPECT_TRUE(config.fillIDs(fresh, true));
  EXPECT_THAT(ids(fresh), ElementsAre(9, 10, 7, 11));
}

TEST(FillIDs, WithoutNewOnesWantEveryNameStored) {
  TariffConfig config = stored({tariff("a", 7), tariff("c", 9)});
  TariffSet known = set_of(tariff("c"), tariff("a"));
  EXPECT_TRUE(config.fillIDs(known, false));
  EXPECT_THAT(ids(known), ElementsAre(9, 7));
  TariffSet unknown = set_of(tariff("a"), tariff("b"), tariff("c"));
  EXPECT_FALSE(config.fillIDs(unknown, false));
  EXPECT_THAT(ids(unknown), ElementsAre(7, 0, 0));
  EXPECT_EQ(next_id(config), 10);
}

TEST(FillIDs, FailWhenNoNumberIsLeft) {
  TariffConfig config = stored({tariff("a", 15'998)});
  TariffSet fresh = set_of(tariff("a"), tariff("b"), tariff("c"), tariff("d"));
  EXPECT_FALSE(config.fillIDs(fresh, true));
  EXPECT_THAT(ids(fresh), ElementsAre(15'998, 15'999, 0, 0));
}

TEST(RefillIDs, NumberFrom4InListOrderAndRestartTheCounter) {
  TariffConfig config = stored({tariff("a", 4), tariff("b", 5), tariff("c", 9)});
  EXPECT_TRUE(config.refillIDs());
  EXPECT_THAT(ids(config), ElementsAre(4, 5, 6));
  EXPECT_EQ(next_id(config), 7);
}

TEST(RefillIDs, FollowTheOrderOfNamesAfterASort) {
  TariffConfig config = stored({tariff("c", 1), tariff("a", 2), tariff("b", 3)});
  config.sort();
  EXPECT_TRUE(config.refillIDs());
  EXPECT_THAT(names(config), ElementsAre("a", "b", "c"));
  EXPECT_THAT(ids(config), ElementsAre(4, 5, 6));
}

TEST(StoredNumbers, AreWithinTheLimitsAndFitWhenEachStandsOnce) {
  const struct {
    const char* what;
    TariffConfig config;
    bool within_limits;
    bool fit;
  } rows[] = {
      {"no tariff", {}, true, true},
      {"the outermost numbers", stored({tariff("a", 4), tariff("b", 15'000)}), true, true},
      {"one name twice", stored({tariff("a", 4), tariff("a", 5)}), true, true},
      {"no number", set_of<TariffConfig>(tariff("a")), false, false},
      {"a reserved number", stored({tariff("a", 4), tariff("b", 1)}), false, false},
      {"a reserved number", stored({tariff("a", 4), tariff("b", 2)}), false, false},
      {"the last reserved number", stored({tariff("a", 4), tariff("b", 3)}), false, false},
      {"a counter of 15001", stored({tariff("a", 4), tariff("b", 15'001)}), false, false},
      {"the last number at all", stored({tariff("a", 4), tariff("b", 15'999)}), false, false},
      {"4 twice", stored({tariff("a", 4), tariff("b", 6), tariff("c", 4)}), true, false},
      {"5 twice", stored({tariff("a", 5), tariff("b", 6), tariff("c", 5)}), true, false},
      {"14999 twice", stored({tariff("a", 14'999), tariff("c", 14'999)}), true, false},
      {"15000 twice", stored({tariff("a", 15'000), tariff("c", 15'000)}), true, false},
      {"one name and number twice", stored({tariff("a", 4), tariff("a", 4)}), true, false},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.what);
    EXPECT_EQ(row.config.checkID(), row.within_limits);
    EXPECT_EQ(row.config.numbersFit(), row.fit);
  }
}

TEST(CheckID, RefusesTheCounterEvenWhenEveryNumberIsValid) {
  TariffConfig config = stored({tariff("a", 14'999)});
  TariffSet fresh = set_of(tariff("x"));
  EXPECT_TRUE(config.addIDs(fresh));
  EXPECT_TRUE(config.checkID());
  EXPECT_TRUE(config.addIDs(fresh));
  EXPECT_THAT(ids(config), ElementsAre(14'999));
  EXPECT_FALSE(config.checkID());
}

TEST(NumbersFit, AgainAfterNumberingAnew) {
  TariffConfig config = stored({tariff("a", 4), tariff("b", 4), tariff("c", 4)});
  EXPECT_TRUE(config.refillIDs());
  EXPECT_TRUE(config.numbersFit());
}

TEST(GetByNumber, FindsExactlyTheNumber) {
  const TariffConfig config = stored({tariff("a", 4), tariff("b", 5), tariff("c", 9)});
  TariffSettings out = tariff("before", 77);
  for (const int id : {0, 3, 6, 7, 10, -4}) {
    SCOPED_TRACE(id);
    EXPECT_FALSE(config.get(id, out));
    EXPECT_EQ(out.name, "before");
  }
  EXPECT_TRUE(config.get(9, out));
  EXPECT_EQ(out.name, "c");
  EXPECT_TRUE(config.get(4, out));
  EXPECT_EQ(out.name, "a");
}

TEST(OrderedByID, FindsNumbersThatNamesPutOutOfOrder) {
  const TariffConfig config = stored({tariff("a", 9), tariff("b", 4), tariff("c", 6)});
  const TariffConfig ordered = config.orderedByID();
  EXPECT_THAT(ids(ordered), ElementsAre(4, 6, 9));
  EXPECT_THAT(ids(config), ElementsAre(9, 4, 6));
  TariffSettings out;
  for (const TariffSettings& t : config.tariffs()) {
    EXPECT_TRUE(ordered.get(t.id, out));
    EXPECT_EQ(out.name, t.name);
  }
  EXPECT_EQ(next_id(ordered), 10);
}

TEST(UpdateStored, RenumbersOnlyWhenReplacingWithRefill) {
  const TariffSet fresh = set_of(tariff("x", 20), tariff("y", 30));
  TariffConfig config = stored({tariff("a", 7)});
  EXPECT_TRUE(config.update(fresh, true, false));
  EXPECT_THAT(ids(config), ElementsAre(20, 30));
  EXPECT_TRUE(config.update(fresh, true, true));
  EXPECT_THAT(ids(config), ElementsAre(4, 5));
  config = stored({tariff("a", 7)});
  EXPECT_TRUE(config.update(fresh, false, true));
  EXPECT_THAT(names(config), ElementsAre("a", "x", "y"));
  EXPECT_THAT(ids(config), ElementsAre(7, 20, 30));
}

TEST(StoredTariffs, RefuseATariffWithoutANumber) {
  TariffConfig config;
  EXPECT_TRUE(config.onSection("a"));
  EXPECT_FALSE(config.onSection("b"));
  EXPECT_TRUE(config.empty());
}

// 4 to 15000 are 14,997 numbers, 4 to 15999 are 15,996.
TEST(ManyTariffs, AreNumberedUpToTheLimits) {
  TariffConfig config;
  EXPECT_TRUE(config.update(numbered_names(14'997), true, true));
  EXPECT_EQ(config.tariffs().back().id, 15'000);
  EXPECT_TRUE(config.checkID());
  EXPECT_TRUE(config.numbersFit());
  config.tariffs().front().setID(15'000);
  EXPECT_FALSE(config.numbersFit());
  EXPECT_TRUE(config.update(numbered_names(14'998), true, true));
  EXPECT_FALSE(config.checkID());
  EXPECT_TRUE(config.update(numbered_names(15'996), true, true));
  EXPECT_EQ(config.tariffs().back().id, 15'999);
  EXPECT_FALSE(config.update(numbered_names(15'997), true, true));
}

TEST(ManyTariffs, AreNumberedUpToTheFirstRefusal) {
  TariffConfig config;
  EXPECT_TRUE(config.update(numbered_names(15'998), true, false));
  EXPECT_FALSE(config.refillIDs());
  EXPECT_EQ(config.tariffs()[15'995].id, 15'999);
  EXPECT_EQ(config.tariffs()[15'996].id, 0);
  EXPECT_EQ(config.tariffs()[15'997].id, 0);
}

TEST(ManyTariffs, KeepTheirNumbersWhenASetIsFilled) {
  TariffConfig config;
  config.update(numbered_names(14'000), true, true);
  TariffSet fresh = numbered_names(14'990);
  EXPECT_TRUE(config.fillIDs(fresh, true));
  for (std::size_t i = 0; i < fresh.tariffs().size(); ++i)
    ASSERT_EQ(fresh.tariffs()[i].id, static_cast<int>(i) + 4);
}

}  // namespace
}  // namespace quenby
