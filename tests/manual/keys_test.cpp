#include <gmock/gmock.h>

#include "model/global_set.h"
#include "model/tariff_set.h"
#include "tests/manual/source_text.h"

// The manual page of the files has the keys that the program takes.
namespace quenby {
namespace {

using ::testing::UnorderedElementsAreArray;

std::vector<std::string> listed_keys(const std::string& heading) {
  std::vector<std::string> keys;
  const auto lines = test::part_of_page("docs/man/quenby.ini.5", heading, {".Sh", ".Ss"});
  for (const std::vector<std::string>& groups : test::matches(lines, "\\.It Ic (\\S+)"))
    keys.push_back(groups.at(0));
  return keys;
}

TEST(ListedKeys, OfTheGlobalSection) {
  EXPECT_THAT(listed_keys(".Ss Keys of the section " + GlobalSettings::name()),
              UnorderedElementsAreArray(key_names(global_keys())));
}

TEST(ListedKeys, OfTheDefaultTariff) {
  EXPECT_THAT(listed_keys(".Ss Keys of the section " + DefaultSettings::name()),
              UnorderedElementsAreArray(key_names(default_keys())));
}

TEST(ListedKeys, OfATariff) {
  EXPECT_THAT(listed_keys(".Ss Keys of a tariff"),
              UnorderedElementsAreArray(key_names(tariff_keys())));
}

}  // namespace
}  // namespace quenby
