#include "tc/class_statistics.h"

#include <netlink/route/class.h>

#include <gtest/gtest.h>
#include <sstream>
#include <utility>

#include "tests/support/tariffs.h"

namespace quenby {
namespace {

// In the order of names; the numbers do not ascend.
TariffConfig tariffs() {
  return test::set_of<TariffConfig>(test::tariff("gold", 9), test::tariff("iron", 4),
                                    test::tariff("tin", 5))
      .orderedByID();
}

TEST(MarkClassName, IsTheTariffsOrTheBareNumber) {
  const std::pair<unsigned, const char*> names[] = {
      {1, "root"}, {2, "system"}, {3, "defaultQoSIPQueue"}, {4, "iron"}, {5, "tin"},
      {7, "7"},    {9, "gold"}};
  for (const auto& [number, name] : names) EXPECT_EQ(mark_class_name(number, tariffs()), name);
  EXPECT_EQ(mark_class_name(15000, TariffConfig()), "15000");
}

TEST(ImqClassName, TellsTheDirectionsApart) {
  const struct {
    const char* what;
    std::uint32_t handle, parent;
    const char* name;
  } rows[] = {
      {"a tariff's", 0x80000005, 0x80000001, "download tin"},
      {"32773 = 32768 + 5", 0x80008005, 0x80008001, "upload tin"},
      {"an unknown tariff's", 0x80008007, 0x80008001, "upload 7"},
      {"the default class has no direction", 0x80000002, 0x80000001, "defaultQoSIPQueue"},
      {"the default class under the qdisc", 0x80000002, 0x80000000, "defaultQoSIPQueue"},
      {"the download's root", 0x80000001, 0xffffffff, ""},
      {"the upload's root", 0x80008001, 0x80000000, ""},
      {"no child of a root class", 0x80000005, 0x80000002, ""},
      {"flow 2 of the leaf 8005:0, which is listed as class 8005:2", 0x80050002, 0x80050000, ""},
  };
  for (const auto& row : rows)
    EXPECT_EQ(imq_class_name(row.handle, row.parent, tariffs()), row.name) << row.what;
}

TEST(PrintClass, WritesSixCountersAfterTheName) {
  const ClassPtr object(rtnl_class_alloc());
  std::ostringstream out;
  print_class(out, "upload gold", object.get());
  EXPECT_EQ(out.str(), "upload gold,0,0,0,0,0,0\n");
}

}  // namespace
}  // namespace quenby
