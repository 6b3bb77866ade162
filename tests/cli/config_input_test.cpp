#include "cli/config_input.h"

#include <gtest/gtest.h>

#include "tests/support/files.h"
#include "tests/support/tariffs.h"

namespace quenby {
namespace {

using test::names;

using Names = std::vector<std::string>;

class TariffFile : public testing::Test {
 protected:
  bool read(const std::string& text) {
    test::write_file(path_, text);
    return read_tariff_file(path_, tariffs_);
  }

  TariffSet tariffs_;

 private:
  const test::ScratchDirectory scratch_;
  const std::string path_ = scratch_.file("tariffs.ini");
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
