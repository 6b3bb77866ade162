#include "tc/handles.h"

#include <gtest/gtest.h>
#include <set>

#include "tc/htb_action.h"

namespace quenby {
namespace {

using enum HandleScheme;

constexpr unsigned kFirstTariff = 4;
constexpr unsigned kLastTariff = 15'000;

TEST(ClassMinor, IsReducedTo14BitsOnMarkClassifiedDevices) {
  EXPECT_EQ(class_minor(mark, 1), 1U);
  EXPECT_EQ(class_minor(mark, 15'000), 15'000U);
  EXPECT_EQ(class_minor(mark, 0x3fff), 0x3fffU);
  EXPECT_EQ(class_minor(mark, 0x4000), 0U);
  EXPECT_EQ(class_minor(mark, 0x4005), 5U);
}

TEST(ClassMinor, IsTheNumberItselfForImqDownload) {
  EXPECT_EQ(class_minor(imq_download, 5), 5U);
  EXPECT_EQ(class_minor(imq_download, 0x4005), 0x4005U);
}

TEST(ClassMinor, Is0x8000HigherForImqUpload) {
  EXPECT_EQ(class_minor(imq_upload, 1), 0x8001U);
  EXPECT_EQ(class_minor(imq_upload, 5), 0x8005U);
  EXPECT_EQ(class_minor(imq_upload, 0x4005), 0xc005U);
}

TEST(ClassHandle, IsUnderTheHtbQdiscAndTakes16Bits) {
  EXPECT_EQ(class_handle(0), 0x80000000U);
  EXPECT_EQ(class_handle(1), 0x80000001U);
  EXPECT_EQ(class_handle(0x8005), 0x80008005U);
  EXPECT_EQ(class_handle(0x18005), 0x80008005U);
}

TEST(LeafHandle, HasTheMajor0x8000PlusTheClassNumber) {
  EXPECT_EQ(leaf_handle(mark, 2), 0x80020000U);
  EXPECT_EQ(leaf_handle(mark, 5), 0x80050000U);
  EXPECT_EQ(leaf_handle(imq_download, 5), 0x80050000U);
  // Unlike the class, the leaf takes the number as it stands.
  EXPECT_EQ(leaf_handle(mark, 0x4005), 0xc0050000U);
}

TEST(LeafHandle, Is20000HigherForImqUpload) {
  // 0x8000 + 5 + 20000 = 52773 = 0xce25
  EXPECT_EQ(leaf_handle(imq_upload, 5), 52'773U << 16);
  EXPECT_EQ(leaf_handle(imq_upload, 5), 0xce250000U);
}

// 0x8000 + 20000 + 12768 = 65536, of which no bit is left; number 0 has no class.
TEST(LeafHandle, TakesThatOfNumber0WhereImqUploadWouldHaveNone) {
  EXPECT_EQ(leaf_handle(imq_upload, 12'767), 0xffff0000U);
  EXPECT_EQ(leaf_handle(imq_upload, 12'768), 52'768U << 16);
  EXPECT_EQ(leaf_handle(imq_upload, 12'769), 0x00010000U);
  EXPECT_EQ(leaf_handle(imq_download, 12'768), 0xb1e00000U);
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

TEST(ActionName, IsTheWordOfTheMessages) {
  EXPECT_EQ(action_name(htb_action{1}), "create");
  EXPECT_EQ(action_name(htb_action{2}), "delete");
  EXPECT_EQ(action_name(htb_action{3}), "update");
}

TEST(ActionName, OfAnyOtherValueShowsTheNumber) {
  EXPECT_EQ(action_name(htb_action{0}), "unknown(0)");
  EXPECT_EQ(action_name(htb_action{4}), "unknown(4)");
  EXPECT_EQ(action_name(htb_action{7}), "unknown(7)");
  EXPECT_EQ(action_name(htb_action{-1}), "unknown(-1)");
}

}  // namespace
}  // namespace quenby
