#include <gtest/gtest.h>

#include "tc/firewall_rules.h"

namespace quenby {
namespace {

TEST(DropChain, IsNeededForABlockedLineAndABlockedDefaultOnAnUnsetLine) {
  struct Speeds {
    std::int64_t download, upload;
  };
  const struct {
    Speeds line;
    bool has_default;
    Speeds def;
    bool needed;
  } rows[] = {
      {{0, -2}, false, {-2, -2}, true},   {{-2, 0}, false, {-2, -2}, true},
      {{125, 0}, true, {125, 125}, true}, {{-2, 125}, true, {0, -2}, true},
      {{125, -2}, true, {-2, 0}, true},   {{-2, -2}, true, {0, 0}, true},
      {{-2, -2}, false, {-2, -2}, false}, {{125, 125}, false, {0, 0}, false},
      {{-2, -2}, false, {0, 0}, false},   {{-2, -2}, true, {-2, -2}, false},
      {{125, 125}, true, {0, 0}, false},  {{-1, -1}, true, {0, 0}, false},
      {{-2, 125}, true, {125, 0}, false}, {{125, -2}, true, {0, 125}, false},
      {{-2, -2}, true, {-1, 1}, false},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(&row - rows);
    GlobalSet set;
    set.global.download.speed = row.line.download;
    set.global.upload.speed = row.line.upload;
    set.has_default = row.has_default;
    set.defaults.download.speed = row.def.download;
    set.defaults.upload.speed = row.def.upload;
    ResolvedSettings settings;
    settings.upload.line = as_given(set, Direction::upload);
    settings.download.line = as_given(set, Direction::download);
    EXPECT_EQ(needs_drop_chain(settings), row.needed);
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
