#include <gmock/gmock.h>
#include <sstream>

#include "shaper/ipv6_note.h"
#include "tests/golden/device_test.h"
#include "tests/golden/router.h"

// What IPv6 adds to an operation's work, and that without it nothing is added.
namespace golden {
namespace {

using quenby::GlobalSet;
using quenby::HtbShaper;
using quenby::TariffSet;
using testing::HasSubstr;

GlobalSet eth1(bool ipv6, std::int64_t download = kTenMbit) {
  GlobalSet set;
  set.has_global = true;
  set.global = line(download, kTenMbit);
  set.global.ipv6 = ipv6;
  return set;
}

quenby::TariffSettings with(quenby::TariffSettings t, const std::string& prefix) {
  EXPECT_TRUE(t.addPrefix(prefix));
  return t;
}

const auto kAmy = with(tariff("amy", 4, 100'000, {"10.0.0.4"}), "2001:db8:4::/48");
const auto kBob = with(tariff("bob", 5, 200'000, {}), "2001:db8:4:5::/64");

// The last byte of the mark that a request puts in, its message and, with IPv6, a "6".
std::string netfilter_line(const std::string& summary, const std::string& request) {
  std::string text = summary;
  const auto mark = request.find(" SKBMARK(27) NET_BYTEORDER ");
  if (mark != std::string::npos) text += ' ' + request.substr(mark + 36, 2);
  return request.find("family 10") == std::string::npos ? text : "6 " + text;
}

bool is_of_ip6(const std::string& line) {
  for (const char* word :
       {"ip6tables", "protocol ipv6", "6 IPSET", "6 IPCTNL", " prio 3", " prio 4", "ffff:0 prio 2"})
    if (line.find(word) != std::string::npos) return true;
  return false;
}

// The lines that are of IPv6, or all others.
std::string lines(const std::string& text, bool of_ip6) {
  std::istringstream in(text);
  std::string picked;
  for (std::string line; std::getline(in, line);)
    if (is_of_ip6(line) == of_ip6) picked += line + '\n';
  return picked;
}

const std::string kStart = "/sbin/sudo /opt/ostrea/sbin/firewall.init start opt-qos\n";

// What operations did, without the looks at the kernel, and what they left.
struct Work {
  std::string commands;
  bool noted = false;
};

template <typename Operation>
Work work_of(Router&& router, const Operation& operation) {
  const SbinRun run = router.run(netfilter_line, [&](HtbShaper& shaper) {
    operation(shaper);
    return std::string(quenby::ipv6_is_noted() ? "noted" : "not noted");
  });
  return {run.commands, run.result == "noted"};
}

Work build(bool ipv6) {
  return work_of(Router(),
                 [ipv6](HtbShaper& shaper) { shaper.create(eth1(ipv6), tariffs({kAmy})); });
}

TEST(Ip6Shaper, HasItsOwnSetClassifiersRulesAndConnections) {
  const std::string filters =
      "RTM_DELTFILTER ifindex 3 parent 8000:0 prio 3\n"
      "RTM_DELTFILTER ifindex 3 parent 8000:0 prio 4\n"
      "RTM_NEWTFILTER CREATE ifindex 3 u32 parent 8000:0 prio 3\n"
      "RTM_NEWTFILTER CREATE ifindex 3 fw parent 8000:0 prio 4\n";
  const Work work = build(true);
  EXPECT_TRUE(work.noted);
  const std::string text = lines(work.commands, true);
  EXPECT_THAT(work.commands, HasSubstr(kStart + "/sbin/sudo ip6tables "));
  const std::string cleaned =
      "/sbin/sudo ip6tables -t mangle -F KAVO_QOS_FW_OUT_HOOK\n"
      "/sbin/sudo ip6tables -t mangle -F KAVO_QOS_FW_IN_HOOK\n"
      "/sbin/sudo ip6tables -t filter -D OSTREA_FW_OUT_HOOK -j KAVO_OPT_QOS_HOOK\n"
      "/sbin/sudo ip6tables -t filter -D OSTREA_FW_IN_HOOK -j KAVO_OPT_QOS_HOOK\n"
      "6 IPSET_CMD_CREATE\n";
  ASSERT_TRUE(text.starts_with(cleaned + filters)) << text;
  EXPECT_THAT(text, HasSubstr("/sbin/tc filter add dev eth1 parent ffff: protocol ipv6 pref 2 u32 "
                              "match u32 0x0 0x0 at 0 action connmark action mirred egress "
                              "redirect dev ifb_ingr\n6 IPSET_CMD_ADD 04\n"));
  const std::string rules =
      "/sbin/sudo ip6tables -t raw -R QOS_CONNTRACK 1 -j ACCEPT\n"
      "/sbin/sudo ip6tables -t mangle -A KAVO_QOS_FW_OUT_HOOK ! -o eth1 -j RETURN\n";
  EXPECT_THAT(text, HasSubstr(rules));
  EXPECT_THAT(text, HasSubstr(" -j SET --map-set kavo_opt_shaper6 src --map-mark\n"));
  EXPECT_TRUE(text.ends_with("6 IPCTNL_MSG_CT_GET\n")) << text;
}

TEST(Ip6Shaper, WithoutItNothingIsOtherwise) {
  const Work without = build(false);
  EXPECT_FALSE(without.noted);
  EXPECT_EQ(lines(without.commands, true), "");
  std::string with = lines(build(true).commands, false);
  const auto start = with.find(kStart);
  ASSERT_NE(start, std::string::npos) << with;
  EXPECT_EQ(with.erase(start, kStart.size()), without.commands);
}

TEST(Ip6Shaper, AClosedDirectionKeepsDiscovery) {
  const std::string text = work_of(Router(), [](HtbShaper& shaper) {
                             shaper.create(eth1(true, 0), tariffs({kAmy}));
                           }).commands;
  EXPECT_THAT(text, HasSubstr("ip6tables -t filter -F KAVO_OPT_QOS_HOOK\n"));
  EXPECT_THAT(text,
              HasSubstr("/sbin/sudo ip6tables -t filter -A KAVO_OPT_QOS_HOOK -i eth1 "
                        "-p ipv6-icmp -m hl --hl-eq 255 -j RETURN\n"
                        "/sbin/sudo ip6tables -t filter -A KAVO_OPT_QOS_HOOK -i eth1 -j DROP\n"));
}

TEST(Ip6Shaper, ATeardownWithoutANoteAsksNobody) {
  const Work work = work_of(Router(), [](HtbShaper& shaper) { shaper.clear(eth1(true)); });
  EXPECT_EQ(lines(work.commands, true), "");
}

TEST(Ip6Shaper, WhatIsNotedGoesWhateverTheSettingsSay) {
  for (const bool load : {true, false}) {
    const Work work = work_of(Router(), [load](HtbShaper& shaper) {
      quenby::note_ipv6();
      load ? shaper.create(eth1(false), tariffs({kAmy})) : shaper.clear(eth1(false));
    });
    EXPECT_FALSE(work.noted);
    EXPECT_EQ(lines(work.commands, true),
              "/sbin/sudo ip6tables -t mangle -F KAVO_QOS_FW_OUT_HOOK\n"
              "/sbin/sudo ip6tables -t mangle -F KAVO_QOS_FW_IN_HOOK\n"
              "/sbin/sudo ip6tables -t filter -D OSTREA_FW_OUT_HOOK -j KAVO_OPT_QOS_HOOK\n"
              "/sbin/sudo ip6tables -t filter -D OSTREA_FW_IN_HOOK -j KAVO_OPT_QOS_HOOK\n"
              "/sbin/sudo ip6tables -t filter -F KAVO_OPT_QOS_HOOK\n"
              "/sbin/sudo ip6tables -t raw -R QOS_CONNTRACK 1 -j RETURN\n"
              "6 IPSET_CMD_FLUSH\n");
  }
}

TEST(Ip6Shaper, TheLineThatTheLastTariffLeavesIsNoted) {
  for (const bool ipv6 : {true, false}) {
    const Work work = work_of(Router(), [ipv6](HtbShaper& shaper) {
      shaper.update_tariffs(eth1(ipv6), tariffs({kAmy}), tariffs({kAmy}), {});
    });
    EXPECT_EQ(work.noted, ipv6);
    EXPECT_EQ(lines(work.commands, true).empty(), !ipv6) << work.commands;
  }
}

TEST(Ip6Shaper, WithoutTheRedirectionOfIPv6EverythingIsBuilt) {
  Router router;
  router.stands(4);
  const Work work = work_of(std::move(router), [](HtbShaper& shaper) {
    shaper.update_tariffs(eth1(true), tariffs({kAmy}), {}, tariffs({kBob}));
  });
  EXPECT_THAT(work.commands, HasSubstr("6 IPSET_CMD_CREATE\n"));
}

TEST(Ip6Shaper, ATariffOfPrefixesAloneHasClasses) {
  Router router;
  router.route.has_root_qdisc(kWanIndex, kHtb);
  const Work work = work_of(std::move(router), [](HtbShaper& shaper) {
    shaper.update_intf(false, eth1(true).global, tariffs({kBob}), {}, line(0, kTenMbit).upload,
                       kTenMbit, true, kGigabit);
    shaper.update_intf(false, eth1(true).global, {}, tariffs({kBob}), line(0, kTenMbit).upload,
                       kTenMbit, true, kGigabit);
    shaper.update_intf(false, eth1(false).global, tariffs({kBob}), tariffs({kBob}),
                       line(0, kTenMbit).upload, kTenMbit, true, kGigabit);
  });
  const std::string root = "RTM_NEWTCLASS REPLACE ifindex 3 htb 8000:1 parent 8000:0\n";
  EXPECT_EQ(work.commands, root + "RTM_NEWTCLASS CREATE ifindex 3 htb 8000:5 parent 8000:1\n" +
                               root + "RTM_DELTCLASS ifindex 3 8000:5 parent 8000:1\n" + root);
}

}  // namespace
}  // namespace golden
