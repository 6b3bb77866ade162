#include <arpa/inet.h>

#include <cstring>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "shaper/address_set.h"
#include "tests/support/tariffs.h"

namespace quenby {
namespace {

using test::set_of;
using test::tariff;
using testing::ElementsAre;
using testing::IsEmpty;

TEST(AddressSetEntry, HasTheMarkOfTheClassAndOurMask) {
  EXPECT_EQ(address_set_entry(1, 4), (AddressSetEntry{1, 0x80000004, 0x80003fff}));
  EXPECT_EQ(address_set_entry(1, 15'000), (AddressSetEntry{1, 0x80003a98, 0x80003fff}));
}

TEST(AddressSetEntry, TakesOnly14BitsOfTheClassNumber) {
  EXPECT_EQ(address_set_entry(1, 16'388).mark, 0x80000004U);
  EXPECT_EQ(address_set_entry(1, 0xffff'ffff'0000'0004).mark, 0x80000004U);
}

TEST(AddressSetEntry, KeepsTheAddressInNetworkOrder) {
  TariffSettings t = tariff("a", 4);
  t.addCIDR("192.168.1.10/24");
  const auto entries = address_set_entries(set_of(t));
  ASSERT_EQ(entries.size(), 1U);
  const unsigned char wire[] = {0xc0, 0xa8, 0x01, 0x0a};
  EXPECT_EQ(std::memcmp(&entries[0].address, wire, sizeof(wire)), 0);
}

TEST(AddressSetEntries, FollowTheOrderOfTariffsAndAddresses) {
  TariffSettings b = tariff("b", 5);
  b.addCIDR("10.0.0.3");
  b.addCIDR("10.0.0.1");
  TariffSettings a = tariff("a", 4);
  a.addCIDR("10.0.0.2");
  EXPECT_THAT(address_set_entries(set_of(b, tariff("no address", 6), a)),
              ElementsAre(AddressSetEntry{htonl(0x0a000003), 0x80000005, 0x80003fff},
                          AddressSetEntry{htonl(0x0a000001), 0x80000005, 0x80003fff},
                          AddressSetEntry{htonl(0x0a000002), 0x80000004, 0x80003fff}));
}

TEST(AddressSetEntries, AreNoneForNoTariffsOrNoAddresses) {
  EXPECT_THAT(address_set_entries(TariffSet()), IsEmpty());
  EXPECT_THAT(address_set_entries(set_of(tariff("a", 4))), IsEmpty());
}

}  // namespace
}  // namespace quenby
