#include "model/tariff_set.h"

#include <algorithm>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <random>

#include "tests/support/tariffs.h"

namespace quenby {
namespace {

using test::ids;
using test::names;
using test::set_of;
using test::tariff;
using testing::ElementsAre;
using testing::IsEmpty;

TEST(AddTariff, RefusesAnEmptyName) {
  TariffSet set = set_of(tariff("a"));
  const TariffSettings unnamed;
  EXPECT_FALSE(set.addTariff(unnamed));
  EXPECT_FALSE(set.addTariff(TariffSettings()));
  EXPECT_THAT(names(set), ElementsAre("a"));
}

TEST(AddTariff, KeepsTwoOfTheSameNameInTheOrderOfAdding) {
  TariffSet set;
  const TariffSettings first = tariff("b", 4);
  EXPECT_TRUE(set.addTariff(first));
  EXPECT_TRUE(set.addTariff(tariff("a", 5)));
  EXPECT_TRUE(set.addTariff(tariff("b", 6)));
  EXPECT_THAT(names(set), ElementsAre("b", "a", "b"));
  EXPECT_THAT(ids(set), ElementsAre(4, 5, 6));
}

TEST(Sort, OrdersNamesByUnsignedBytes) {
  TariffSet set = set_of(tariff("abc"), tariff("\xc3\xa9"), tariff("a"), tariff("ab"), tariff("Z"),
                         tariff("9"), tariff("~"), tariff("10"), tariff("a b"));
  set.sort();
  EXPECT_THAT(names(set), ElementsAre("10", "9", "Z", "a", "a b", "ab", "abc", "~", "\xc3\xa9"));
}

TEST(Sort, LooksAtNothingButTheName) {
  TariffSettings slow = tariff("a", 9);
  slow.download.speed = 1;
  TariffSettings fast = tariff("a", 4);
  fast.download.speed = 1000;
  EXPECT_FALSE(slow < fast);
  EXPECT_FALSE(fast < slow);
  EXPECT_TRUE(slow < tariff("b", 1));
}

TEST(Find, OnAnEmptySetGivesTheEnd) {
  const TariffSet set;
  EXPECT_EQ(set.find("a"), set.tariffs().end());
  EXPECT_FALSE(set.exists("a"));
  TariffSettings out = tariff("before", 7);
  EXPECT_FALSE(set.get("a", out));
  EXPECT_TRUE(out == tariff("before", 7));
}

TEST(Find, WantsExactlyTheName) {
  const TariffSet set = set_of(tariff("ab", 4), tariff("abc", 5), tariff("b", 6));
  EXPECT_EQ(set.find("ab")->id, 4);
  EXPECT_EQ(set.find("abc")->id, 5);
  EXPECT_EQ(set.find("b")->id, 6);
  for (const char* name : {"", "a", "abb", "abcd", "AB", "c", "b "}) {
    SCOPED_TRACE(name);
    EXPECT_FALSE(set.exists(name));
    EXPECT_EQ(set.find(name), set.tariffs().end());
  }
}

TEST(AllOf, GivesEveryTariffOfTheName) {
  const TariffSet set = set_of(tariff("a", 4), tariff("b", 5), tariff("b", 6), tariff("c", 7));
  ASSERT_EQ(set.allOf("b").size(), 2U);
  EXPECT_EQ(set.allOf("b")[0].id, 5);
  EXPECT_EQ(set.allOf("b")[1].id, 6);
  ASSERT_EQ(set.allOf("c").size(), 1U);
  EXPECT_EQ(set.allOf("c")[0].id, 7);
  for (const char* name : {"", "B", "aa", "bb", "d"}) {
    SCOPED_TRACE(name);
    EXPECT_TRUE(set.allOf(name).empty());
  }
  EXPECT_TRUE(TariffSet().allOf("a").empty());
}

TEST(Get, CopiesEveryField) {
  TariffSettings stored = tariff("a", 9);
  stored.addCIDR("10.0.0.1/24");
  stored.setAggregation("4");
  const TariffSet set = set_of(stored);
  TariffSettings out;
  EXPECT_TRUE(set.get("a", out));
  EXPECT_TRUE(out == stored);
  EXPECT_THAT(out.address_texts, ElementsAre("10.0.0.1/24"));
}

TEST(Remove, TakesOutWhatTheOtherNamesAndKeepsTheOrder) {
  TariffSet set = set_of(tariff("d"), tariff("b"), tariff("a"), tariff("c"), tariff("b"));
  set.remove(set_of(tariff("b"), tariff("c"), tariff("x")));
  EXPECT_THAT(names(set), ElementsAre("d", "a"));
  set.remove(TariffSet());
  EXPECT_THAT(names(set), ElementsAre("d", "a"));
}

TEST(Update, MergesWholeTariffsByName) {
  TariffSettings old_b = tariff("b", 5);
  old_b.addCIDR("10.0.0.1");
  old_b.download.speed = 1000;
  TariffSet set = set_of(tariff("a", 4), old_b, tariff("c", 6));
  TariffSettings new_b = tariff("b", 9);
  new_b.addCIDR("10.0.0.2");
  EXPECT_TRUE(set.update(set_of(new_b), false));
  EXPECT_THAT(names(set), ElementsAre("a", "b", "c"));
  EXPECT_THAT(ids(set), ElementsAre(4, 9, 6));
  EXPECT_TRUE(*set.find("b") == new_b);
  EXPECT_EQ(set.find("b")->download.speed, -2);
}

TEST(Update, MergeSortsTheResult) {
  TariffSet set = set_of(tariff("z"), tariff("m"));
  EXPECT_TRUE(set.update(set_of(tariff("a"), tariff("n")), false));
  EXPECT_THAT(names(set), ElementsAre("a", "m", "n", "z"));
}

TEST(Update, ReplaceTakesTheOtherListAsItIs) {
  TariffSet set = set_of(tariff("a"), tariff("b"));
  EXPECT_TRUE(set.update(set_of(tariff("z"), tariff("c")), true));
  EXPECT_THAT(names(set), ElementsAre("z", "c"));
}

TEST(Update, ReplaceByAnEmptySetEmptiesTheSet) {
  TariffSet set = set_of(tariff("a"));
  EXPECT_TRUE(set.update(TariffSet(), true));
  EXPECT_THAT(names(set), IsEmpty());
  EXPECT_TRUE(set.empty());
}

TEST(TariffSet, IsCopiedWhole) {
  TariffSet set = set_of(tariff("a"));
  set.onSection("pending");
  TariffSet copy(set);
  EXPECT_TRUE(set.endSection());
  EXPECT_THAT(names(copy), ElementsAre("a"));
  EXPECT_TRUE(copy.onKey("pending", "id", "7"));
  EXPECT_TRUE(copy.endSection());
  EXPECT_THAT(names(copy), ElementsAre("a", "pending"));
  EXPECT_THAT(ids(copy), ElementsAre(0, 7));
  EXPECT_THAT(ids(set), ElementsAre(0, 0));
}

// 15,000 names t00000 to t14999 in random order, the number in each id's stead.
TariffSet many_tariffs() {
  std::vector<int> numbers(15'000);
  for (std::size_t i = 0; i < numbers.size(); ++i) numbers[i] = static_cast<int>(i) + 1;
  std::shuffle(numbers.begin(), numbers.end(), std::mt19937(1));
  TariffSet set;
  for (const int number : numbers) {
    const std::string digits = std::to_string(number - 1);
    set.addTariff(tariff("t" + std::string(5 - digits.size(), '0') + digits, number));
  }
  return set;
}

TEST(ManyTariffs, AreFoundAfterSorting) {
  TariffSet set = many_tariffs();
  set.sort();
  ASSERT_EQ(set.tariffs().size(), 15'000U);
  for (int i = 0; i < 15'000; ++i) ASSERT_EQ(set.tariffs()[static_cast<std::size_t>(i)].id, i + 1);
  EXPECT_EQ(set.find("t00000")->id, 1);
  EXPECT_EQ(set.find("t07499")->id, 7500);
  EXPECT_EQ(set.find("t14999")->id, 15'000);
  EXPECT_FALSE(set.exists("t15000"));
}

TEST(ManyTariffs, AreMergedAndRemoved) {
  TariffSet set = many_tariffs();
  TariffSet odd;
  for (const TariffSettings& t : set.tariffs()) {
    if (t.id % 2 == 1) odd.addTariff(tariff(t.name, 15'999));
  }
  odd.sort();
  EXPECT_TRUE(set.update(odd, false));
  ASSERT_EQ(set.tariffs().size(), 15'000U);
  EXPECT_EQ(set.find("t00000")->id, 15'999);
  EXPECT_EQ(set.find("t00001")->id, 2);
  set.remove(odd);
  ASSERT_EQ(set.tariffs().size(), 7500U);
  EXPECT_EQ(set.tariffs().front().name, "t00001");
  EXPECT_EQ(set.tariffs().back().name, "t14999");
}

}  // namespace
}  // namespace quenby
