#include "tc/class_statistics.h"

#include <netlink/route/class.h>

#include <gtest/gtest.h>
#include <sstream>

#include "tests/support/tariffs.h"

namespace quenby {
namespace {

// In the order of names; the numbers do not ascend.
TariffConfig tariffs() {
  return test::set_of<TariffConfig>(test::tariff("gold", 9), test::tariff("iron", 4),
                                    test::tariff("tin", 5))
      .orderedByID();
}

TEST(MarkClassName, NamesReservedClassesAndTariffs) {
  const TariffConfig cfg = tariffs();
  EXPECT_EQ(mark_class_name(1, cfg), "root");
  EXPECT_EQ(mark_class_name(2, cfg), "system");
  EXPECT_EQ(mark_class_name(3, cfg), "defaultQoSIPQueue");
  EXPECT_EQ(mark_class_name(4, cfg), "iron");
  EXPECT_EQ(mark_class_name(5, cfg), "tin");
  EXPECT_EQ(mark_class_name(9, cfg), "gold");
}

TEST(MarkClassName, OfAnUnknownTariffIsTheBareNumber) {
  EXPECT_EQ(mark_class_name(7, tariffs()), "7");
  EXPECT_EQ(mark_class_name(15000, TariffConfig()), "15000");
}

TEST(ImqClassName, TellsTheDirectionsApart) {
  const TariffConfig cfg = tariffs();
  EXPECT_EQ(imq_class_name(0x80000005, 0x80000001, cfg), "download tin");
  // 32773 = 32768 + 5.
  EXPECT_EQ(imq_class_name(0x80008005, 0x80008001, cfg), "upload tin");
  EXPECT_EQ(imq_class_name(0x80008007, 0x80008001, cfg), "upload 7");
}

TEST(ImqClassName, DefaultClassHasNoDirection) {
  EXPECT_EQ(imq_class_name(0x80000002, 0x80000001, tariffs()), "defaultQoSIPQueue");
  EXPECT_EQ(imq_class_name(0x80000002, 0x80000000, tariffs()), "defaultQoSIPQueue");
}

TEST(ImqClassName, LeavesOutWhatIsNoChildOfARootClass) {
  const TariffConfig cfg = tariffs();
  EXPECT_EQ(imq_class_name(0x80000001, 0xffffffff, cfg), "");
  EXPECT_EQ(imq_class_name(0x80008001, 0x80000000, cfg), "");
  EXPECT_EQ(imq_class_name(0x80000005, 0x80000002, cfg), "");
}

TEST(ImqClassName, LeavesOutTheFlowsOfLeafQdiscs) {
  // Flow 2 of the leaf 8005:0, which is listed as class 8005:2.
  EXPECT_EQ(imq_class_name(0x80050002, 0x80050000, tariffs()), "");
}

TEST(PrintClass, WritesSixCountersAfterTheName) {
  const ClassPtr object(rtnl_class_alloc());
  std::ostringstream out;
  print_class(out, "upload gold", object.get());
  EXPECT_EQ(out.str(), "upload gold,0,0,0,0,0,0\n");
}

}  // namespace
}  // namespace quenby
