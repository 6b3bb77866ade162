#include <gtest/gtest.h>

#include "tc/handles.h"
#include "tc/redirection.h"

namespace quenby {
namespace {

TEST(Hex, IsLowerCaseWithoutLeadingZeros) {
  EXPECT_EQ(hex(0), "0");
  EXPECT_EQ(hex(0xf), "f");
  EXPECT_EQ(hex(0xffff), "ffff");
  EXPECT_EQ(hex(0x80003fff), "80003fff");
  EXPECT_EQ(hex(0xABCDEF01), "abcdef01");
}

TEST(RedirectCommand, SendsEverythingToTheIfbDevice) {
  EXPECT_EQ(redirect_command("eth1", false),
            "/sbin/tc filter add dev eth1 parent ffff: protocol ip pref 1 u32 match u32 0 0 "
            "action mirred egress redirect dev ifb_ingr");
}

TEST(RedirectCommand, RestoresTheMarkFirst) {
  EXPECT_EQ(redirect_command("ppp0", true),
            "/sbin/tc filter add dev ppp0 parent ffff: protocol ip pref 1 u32 match u32 0 0 "
            "action connmark action mirred egress redirect dev ifb_ingr");
}

TEST(RedirectCommand, LetsNoNameRunACommand) {
  EXPECT_EQ(
      redirect_command("eth1; reboot", false),
      "/sbin/tc filter add dev 'eth1; reboot' parent ffff: protocol ip pref 1 u32 match u32 0 0 "
      "action mirred egress redirect dev ifb_ingr");
}

}  // namespace
}  // namespace quenby
