#include "cli/config_input.h"

#include <fstream>
#include <gtest/gtest.h>

#include "tests/support/tariffs.h"

namespace quenby {
namespace {

using test::names;
using test::set_of;
using test::tariff;

using Names = std::vector<std::string>;

TariffSettings with_address(TariffSettings t, const std::string& address) {
  t.addCIDR(address);
  return t;
}

struct Differences {
  TariffSet removed;
  TariffSet added;
};

Differences differences(const TariffConfig& current, const TariffSet& list) {
  Differences result;
  collect_differences(current, list, result.removed, result.added);
  return result;
}

TEST(Differences, BetweenEqualListsAreNone) {
  const auto current = set_of<TariffConfig>(tariff("a", 4), tariff("b", 5));
  const Differences d = differences(current, set_of(tariff("a", 4), tariff("b", 5)));
  EXPECT_TRUE(d.removed.empty());
  EXPECT_TRUE(d.added.empty());
}

TEST(Differences, PutAChangedTariffIntoBothSets) {
  TariffSettings changed = tariff("b", 5);
  changed.setQDisc("sfq");
  const auto current = set_of<TariffConfig>(tariff("a", 4), tariff("b", 5), tariff("c", 6));
  const Differences d = differences(current, set_of(tariff("a", 4), changed));
  EXPECT_EQ(names(d.removed), Names{"b"});
  EXPECT_EQ(names(d.added), Names{"b"});
  EXPECT_EQ(d.removed.tariffs()[0].qdisc_str(), "none");
  EXPECT_EQ(d.added.tariffs()[0].qdisc_str(), "sfq");
}

TEST(Differences, PutANewTariffIntoTheAddedSetAlone) {
  const Differences d =
      differences(set_of<TariffConfig>(tariff("b", 5)), set_of(tariff("a", 6), tariff("b", 5)));
  EXPECT_TRUE(d.removed.empty());
  EXPECT_EQ(names(d.added), Names{"a"});
}

TEST(Differences, IgnoreAPrefixLength) {
  const auto current = set_of<TariffConfig>(with_address(tariff("a", 4), "10.0.0.1/32"));
  const Differences d = differences(current, set_of(with_address(tariff("a", 4), "10.0.0.1")));
  EXPECT_TRUE(d.added.empty());
}

class TariffFile : public testing::Test {
 protected:
  bool read(const std::string& text) {
    std::ofstream(path_) << text;
    return read_tariff_file(path_, tariffs_);
  }

  TariffSet tariffs_;

 private:
  const std::string path_ = testing::TempDir() + "quenby_tariff_file.ini";
};

TEST_F(TariffFile, IsOrderedByName) {
  ASSERT_TRUE(read("[z]\n[a]\n[m]\n"));
  EXPECT_EQ(names(tariffs_), (Names{"a", "m", "z"}));
}

TEST_F(TariffFile, HoldsValuesAsTheyAreStored) {
  ASSERT_TRUE(read("[a]\ndownload_speed=1.5\n"));
  EXPECT_EQ(tariffs_.tariffs()[0].download.speed, 125);
  EXPECT_EQ(tariffs_.tariffs()[0].upload.speed, 0);
}

TEST_F(TariffFile, WithTwoTariffsOfOneNameIsRefused) {
  EXPECT_FALSE(read("[a]\nid=4\n[b]\n[a]\n"));
}

TEST_F(TariffFile, WithABurstSizeThatCannotBeStoredIsRefused) {
  EXPECT_FALSE(read("[a]\nupload_burst_size=3000000000\n"));
}

TEST_F(TariffFile, ThatIsMissingOrMalformedIsRefused) {
  EXPECT_FALSE(read_tariff_file("/nonexistent/tariffs.ini", tariffs_));
  EXPECT_FALSE(read("[a]\nspeed=1\n"));
}

}  // namespace
}  // namespace quenby
