#include "tc/handles.h"

#include <gtest/gtest.h>
#include <set>
#include <utility>

#include "tc/htb_action.h"

namespace quenby {
namespace {

using enum HandleScheme;

constexpr unsigned kFirstTariff = 4;
constexpr unsigned kLastTariff = 15'000;

TEST(ClassMinor, FollowsTheSchemeOfTheDevice) {
  const struct {
    HandleScheme scheme;
    unsigned number, minor;
  } rows[] = {
      // 14 bits.
      {mark, 1, 1},
      {mark, 15'000, 15'000},
      {mark, 0x3fff, 0x3fff},
      {mark, 0x4000, 0},
      {mark, 0x4005, 5},
      // The number itself.
      {imq_download, 5, 5},
      {imq_download, 0x4005, 0x4005},
      // 0x8000 higher.
      {imq_upload, 1, 0x8001},
      {imq_upload, 5, 0x8005},
      {imq_upload, 0x4005, 0xc005},
  };
  for (const auto& row : rows)
    EXPECT_EQ(class_minor(row.scheme, row.number), row.minor) << row.number;
}

TEST(ClassHandle, IsUnderTheHtbQdiscAndTakes16Bits) {
  EXPECT_EQ(class_handle(0), 0x80000000U);
  EXPECT_EQ(class_handle(1), 0x80000001U);
  EXPECT_EQ(class_handle(0x8005), 0x80008005U);
  EXPECT_EQ(class_handle(0x18005), 0x80008005U);
}

TEST(LeafHandle, HasTheMajor0x8000PlusTheClassNumber) {
  const struct {
    HandleScheme scheme;
    unsigned number;
    std::uint32_t handle;
  } rows[] = {
      {mark, 2, 0x80020000},
      {mark, 5, 0x80050000},
      {imq_download, 5, 0x80050000},
      // Unlike the class, the leaf takes the number as it stands.
      {mark, 0x4005, 0xc0050000},
      // 20000 higher: 0x8000 + 5 + 20000 = 52773 = 0xce25
      {imq_upload, 5, 0xce250000},
      {imq_upload, 12'767, 0xffff0000},
      // 0x8000 + 20000 + 12768 = 65536, of which no bit is left; number 0 has no class.
      {imq_upload, 12'768, 52'768U << 16},
      {imq_upload, 12'769, 0x00010000},
      {imq_download, 12'768, 0xb1e00000},
  };
  for (const auto& row : rows)
    EXPECT_EQ(leaf_handle(row.scheme, row.number), row.handle) << row.number;
}

// The default class's leaf, the root and each tariff's two leaves share one device.
TEST(LeafHandle, IsUniqueOnTheImqDeviceAndNeverNone) {
  std::set<std::uint32_t> taken{0, kHtbHandle, leaf_handle(imq_download, kDefaultClass)};
  for (unsigned number = kFirstTariff; number <= kLastTariff; ++number) {
    for (const HandleScheme scheme : {imq_download, imq_upload}) {
      const std::uint32_t handle = leaf_handle(scheme, number);
      EXPECT_EQ(handle & 0xffff, 0U) << number;
      EXPECT_TRUE(taken.insert(handle).second) << number << " has " << std::hex << handle;
    }
  }
  EXPECT_EQ(taken.size(), 3 + 2 * 14'997U);
}

TEST(ClassMark, HasBit31AndTheLow14BitsOfTheNumber) {
  EXPECT_EQ(class_mark(4), 0x80000004U);
  EXPECT_EQ(class_mark(15'000), 0x80003a98U);
  EXPECT_EQ(class_mark(16'383), 0x80003fffU);
  EXPECT_EQ(class_mark(16'388), 0x80000004U);
  EXPECT_EQ(class_mark(0x1'0000'0004), 0x80000004U);
  EXPECT_EQ(class_mark(0xffff'ffff'ffff'ffff), 0x80003fffU);
}

TEST(FixedHandles, AreThoseOfTheScheme) {
  EXPECT_EQ(kHtbHandle, 0x80000000U);
  EXPECT_EQ(kIngressHandle, 0xffff0000U);
  EXPECT_EQ(kPlainRootHandle, 0x00010000U);
  EXPECT_EQ(kMarkMask, 0x80003fffU);
}

TEST(ActionName, IsTheWordOfTheMessagesOrShowsTheNumber) {
  const std::pair<int, const char*> names[] = {
      {1, "create"},     {2, "delete"},     {3, "update"},      {0, "unknown(0)"},
      {4, "unknown(4)"}, {7, "unknown(7)"}, {-1, "unknown(-1)"}};
  for (const auto& [action, name] : names) EXPECT_EQ(action_name(htb_action{action}), name);
}

}  // namespace
}  // namespace quenby
