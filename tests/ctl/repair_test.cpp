#include "ctl/repair.h"

#include <gtest/gtest.h>

// What a repair has mended: what was found before and is not found again.
namespace quenby {
namespace {

Drift drift(const std::string& object) {
  return {DriftKind::missing, "eth1", object, "", {}, false};
}

std::string objects(const std::vector<Drift>& list) {
  std::string text;
  for (const Drift& one : list) text += one.object + ' ';
  return text;
}

TEST(Mended, IsWhatIsNotFoundAgain) {
  EXPECT_EQ(objects(mended({drift("a"), drift("b"), drift("c")}, {drift("b")})), "a c ");
  EXPECT_EQ(objects(mended({drift("a")}, {})), "a ");
  EXPECT_EQ(objects(mended({drift("a")}, {drift("a")})), "");
  EXPECT_EQ(objects(mended({}, {drift("a")})), "");
}

TEST(Mended, CountsDifferencesThatLookTheSame) {
  EXPECT_EQ(objects(mended({drift("a"), drift("a"), drift("a")}, {drift("a")})), "a a ");
}

TEST(Mended, ADifferenceThatHasChangedIsAnotherOne) {
  Drift before = drift("a");
  Drift after = before;
  before.detail = "rate 1";
  after.detail = "rate 2";
  EXPECT_EQ(objects(mended({before}, {after})), "a ");
}

}  // namespace
}  // namespace quenby
