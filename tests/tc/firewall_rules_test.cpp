#include "tc/firewall_rules.h"

#include <gtest/gtest.h>

namespace quenby {
namespace {

// The mark of class number 3, which packets of no tariff get.
constexpr std::uint32_t kDefaultMark = 0x80000003;

ResolvedLine line(const char* wan, std::int64_t speed) { return {wan, speed, std::nullopt}; }

ResolvedLine with_default(const char* wan, std::int64_t speed, std::int64_t def) {
  return {wan, speed, ClassRates{def, def, 0}};
}

const std::string kMarkingOnEth1 =
    "sudo iptables -t mangle -A KAVO_QOS_FW_OUT_HOOK ! -o eth1 -j RETURN;"
    "sudo iptables -t mangle -A KAVO_QOS_FW_OUT_HOOK -m addrtype --src-type=LOCAL -j RETURN;"
    "sudo iptables -t mangle -A KAVO_QOS_FW_OUT_HOOK -j CONNMARK --restore-mark"
    " --nfmask 0x80003fff --ctmask 0x80003fff"
    ";sudo iptables -t mangle -A KAVO_QOS_FW_OUT_HOOK -m mark ! --mark 0/0x80003fff -j RETURN;"
    "sudo iptables -t mangle -A KAVO_QOS_FW_OUT_HOOK -j MARK --set-xmark 0x80000003/0x80003fff"
    ";sudo iptables -t mangle -A KAVO_QOS_FW_OUT_HOOK -j SET --map-set kavo_opt_shaper src"
    " --map-mark;"
    "sudo iptables -t mangle -A KAVO_QOS_FW_OUT_HOOK -j CONNMARK --save-mark"
    " --nfmask 0x80003fff --ctmask 0x80003fff";

TEST(CleanRules, EmptyTheMarkingChainsAndTakeTheJumpsOut) {
  EXPECT_EQ(clean_rules(),
            "sudo iptables -t mangle -F KAVO_QOS_FW_OUT_HOOK;"
            "sudo iptables -t mangle -F KAVO_QOS_FW_IN_HOOK;"
            "sudo iptables -t filter -D OSTREA_FW_OUT_HOOK -j KAVO_OPT_QOS_HOOK>/dev/null 2>&1;"
            "sudo iptables -t filter -D OSTREA_FW_IN_HOOK -j KAVO_OPT_QOS_HOOK>/dev/null 2>&1"
            " || true");
}

TEST(EgressRules, OfABlockedLineAreTwoFilterCommands) {
  const std::string expected =
      "sudo iptables -t filter -I OSTREA_FW_OUT_HOOK 1 -j KAVO_OPT_QOS_HOOK;"
      "sudo iptables -t filter -A KAVO_OPT_QOS_HOOK -o eth1 -j DROP";
  EXPECT_EQ(upload_rules(line("eth1", 0), kDefaultMark), expected);
  EXPECT_EQ(upload_rules(with_default("eth1", 0, 0), kDefaultMark), expected);
}

TEST(EgressRules, MarkForwardedPackets) {
  for (const std::int64_t upload : {-2, -1, 1, 125'000'000})
    EXPECT_EQ(upload_rules(line("eth1", upload), kDefaultMark), kMarkingOnEth1) << upload;
}

TEST(EgressRules, OfAnUnsetLineDropTheBlockedDefaultFirst) {
  EXPECT_EQ(upload_rules(with_default("eth1", -2, 0), kDefaultMark),
            "sudo iptables -t filter -I OSTREA_FW_OUT_HOOK 1 -j KAVO_OPT_QOS_HOOK;"
            "sudo iptables -t filter -A KAVO_OPT_QOS_HOOK -o eth1 -j CONNMARK --restore-mark"
            " --nfmask 0x80003fff --ctmask 0x80003fff"
            ";sudo iptables -t filter -A KAVO_OPT_QOS_HOOK -o eth1 -m mark --mark"
            " 0x80000003/0x80003fff -j DROP;" +
                kMarkingOnEth1);
}

TEST(EgressRules, DropNoDefaultThatIsNotBlocked) {
  EXPECT_EQ(upload_rules(with_default("eth1", -2, 125), kDefaultMark), kMarkingOnEth1);
  EXPECT_EQ(upload_rules(with_default("eth1", 125, 0), kDefaultMark), kMarkingOnEth1);
}

TEST(EgressRules, QuoteAStrangeDeviceName) {
  EXPECT_EQ(upload_rules(line("a b", 0), kDefaultMark),
            "sudo iptables -t filter -I OSTREA_FW_OUT_HOOK 1 -j KAVO_OPT_QOS_HOOK;"
            "sudo iptables -t filter -A KAVO_OPT_QOS_HOOK -o 'a b' -j DROP");
}

const char* const kAccept = "sudo iptables -t raw -R QOS_CONNTRACK 1 -j ACCEPT";
const char* const kReturn = "sudo iptables -t raw -R QOS_CONNTRACK 1 -j RETURN";

TEST(IngressRules, OfABlockedLineDropEverythingAndTrackAsBefore) {
  const std::string expected =
      "sudo iptables -t filter -I OSTREA_FW_IN_HOOK 1 -j KAVO_OPT_QOS_HOOK;"
      "sudo iptables -t filter -A KAVO_OPT_QOS_HOOK -i eth1 -j DROP;"
      "sudo iptables -t raw -R QOS_CONNTRACK 1 -j RETURN";
  for (const bool wan_found : {true, false}) {
    EXPECT_EQ(download_rules(line("eth1", 0), kDefaultMark, wan_found), expected);
    EXPECT_EQ(download_rules(with_default("eth1", 0, 0), kDefaultMark, wan_found), expected);
  }
}

TEST(IngressRules, OfAnUnsetLineDropTheBlockedDefault) {
  for (const bool wan_found : {true, false}) {
    EXPECT_EQ(download_rules(with_default("eth1", -2, 0), kDefaultMark, wan_found),
              "sudo iptables -t filter -I OSTREA_FW_IN_HOOK 1 -j KAVO_OPT_QOS_HOOK;"
              "sudo iptables -t filter -A KAVO_OPT_QOS_HOOK -i eth1 -j CONNMARK --restore-mark"
              " --nfmask 0x80003fff --ctmask 0x80003fff"
              ";sudo iptables -t filter -A KAVO_OPT_QOS_HOOK -i eth1 -m mark --mark"
              " 0x80000003/0x80003fff -j DROP;"
              "sudo iptables -t raw -R QOS_CONNTRACK 1 -j ACCEPT");
  }
}

TEST(IngressRules, TrackConnectionsWhereTheWanDeviceExists) {
  EXPECT_EQ(download_rules(line("eth1", 125), kDefaultMark, true), kAccept);
  EXPECT_EQ(download_rules(line("eth1", -2), kDefaultMark, true), kAccept);
  EXPECT_EQ(download_rules(line("eth1", 125), kDefaultMark, false), kReturn);
  EXPECT_EQ(download_rules(with_default("eth1", 125, 0), kDefaultMark, true), kAccept);
  EXPECT_EQ(download_rules(with_default("eth1", -2, 125), kDefaultMark, false), kReturn);
}

TEST(ImqRules, SendForwardedPacketsThroughTheDevice) {
  EXPECT_EQ(imq_upload_rules(),
            "sudo iptables -t mangle -A KAVO_QOS_FW_OUT_HOOK -m addrtype --src-type=LOCAL"
            " -j RETURN;"
            "sudo iptables -t mangle -A KAVO_QOS_FW_OUT_HOOK -j IMQ --todev 0;"
            "sudo iptables -t raw -R QOS_CONNTRACK 1 -j RETURN");
  EXPECT_EQ(imq_download_rules("eth1"),
            "sudo iptables -t mangle -A KAVO_QOS_FW_IN_HOOK -i eth1 -j IMQ --todev 0");
}

TEST(AppendCommands, SeparatesListsWithASemicolon) {
  std::string list;
  append_commands(list, "a");
  EXPECT_EQ(list, "a");
  append_commands(list, "b;c");
  EXPECT_EQ(list, "a;b;c");
  append_commands(list, "");
  EXPECT_EQ(list, "a;b;c");
}

TEST(DefaultBlocked, WantsAnUnsetLineAndADefaultOfZero) {
  EXPECT_TRUE(with_default("eth1", -2, 0).default_blocked());
  EXPECT_FALSE(line("eth1", -2).default_blocked());
  for (const std::int64_t speed : {-1, 0, 125})
    EXPECT_FALSE(with_default("eth1", speed, 0).default_blocked()) << speed;
  for (const std::int64_t def : {-1, 1})
    EXPECT_FALSE(with_default("eth1", -2, def).default_blocked()) << def;
}

}  // namespace
}  // namespace quenby
