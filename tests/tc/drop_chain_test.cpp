#include <gtest/gtest.h>

#include "tc/firewall_rules.h"

namespace quenby {
namespace {

struct Row {
  std::int64_t download;
  std::int64_t upload;
  bool has_default;
  std::int64_t default_download;
  std::int64_t default_upload;
};

bool needed(const Row& row) {
  GlobalSet set;
  set.global.download.speed = row.download;
  set.global.upload.speed = row.upload;
  set.has_default = row.has_default;
  set.defaults.download.speed = row.default_download;
  set.defaults.upload.speed = row.default_upload;
  ResolvedSettings settings;
  settings.upload.line = as_given(set, Direction::upload);
  settings.download.line = as_given(set, Direction::download);
  return needs_drop_chain(settings);
}

TEST(DropChain, IsNeededForABlockedLine) {
  EXPECT_TRUE(needed({0, -2, false, -2, -2}));
  EXPECT_TRUE(needed({-2, 0, false, -2, -2}));
  EXPECT_TRUE(needed({125, 0, true, 125, 125}));
}

TEST(DropChain, IsNeededForABlockedDefaultOnAnUnsetLine) {
  EXPECT_TRUE(needed({-2, 125, true, 0, -2}));
  EXPECT_TRUE(needed({125, -2, true, -2, 0}));
  EXPECT_TRUE(needed({-2, -2, true, 0, 0}));
}

TEST(DropChain, IsNotNeededOtherwise) {
  const Row rows[] = {
      {-2, -2, false, -2, -2}, {125, 125, false, 0, 0}, {-2, -2, false, 0, 0},
      {-2, -2, true, -2, -2},  {125, 125, true, 0, 0},  {-1, -1, true, 0, 0},
      {-2, 125, true, 125, 0}, {125, -2, true, 0, 125}, {-2, -2, true, -1, 1},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(testing::Message() << row.download << ' ' << row.upload << ' ' << row.has_default
                                    << ' ' << row.default_download << ' ' << row.default_upload);
    EXPECT_FALSE(needed(row));
  }
}

TEST(DropChain, IsEmptiedOrMade) {
  EXPECT_EQ(drop_chain_commands(),
            "sudo iptables -t filter -F KAVO_OPT_QOS_HOOK>/dev/null 2>&1 || "
            "sudo iptables -t filter -N KAVO_OPT_QOS_HOOK>/dev/null 2>&1");
}

TEST(Teardown, StartsWithThePlatformsFirewallAndEndsWithItsOwnTracking) {
  EXPECT_EQ(firewall_start_command(), "sudo /opt/ostrea/sbin/firewall.init start opt-qos");
  EXPECT_EQ(firewall_end_commands(),
            "sudo iptables -t filter -F KAVO_OPT_QOS_HOOK>/dev/null 2>&1;"
            "sudo iptables -t raw -R QOS_CONNTRACK 1 -j RETURN");
}

}  // namespace
}  // namespace quenby
