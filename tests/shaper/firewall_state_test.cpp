#include "shaper/firewall_state.h"

#include <gtest/gtest.h>

#include "model/resolved_settings.h"
#include "tc/firewall_rules.h"
#include "tests/support/drift.h"
#include "tests/support/tariffs.h"

// What our commands make of the firewall, beside what iptables lists.
namespace quenby {
namespace {

constexpr const char* kMangle =
    "-P PREROUTING ACCEPT\n"
    "-N KAVO_QOS_FW_IN_HOOK\n"
    "-N KAVO_QOS_FW_OUT_HOOK\n"
    "-A POSTROUTING -j KAVO_QOS_FW_OUT_HOOK\n"
    "-A KAVO_QOS_FW_OUT_HOOK ! -o eth1 -j RETURN\n"
    "-A KAVO_QOS_FW_OUT_HOOK -m addrtype --src-type LOCAL -j RETURN\n"
    "-A KAVO_QOS_FW_OUT_HOOK -j CONNMARK --restore-mark --nfmask 0x80003fff --ctmask 0x80003fff\n"
    "-A KAVO_QOS_FW_OUT_HOOK -m mark ! --mark 0x0/0x80003fff -j RETURN\n"
    "-A KAVO_QOS_FW_OUT_HOOK -j MARK --set-xmark 0x80000003/0x80003fff\n"
    "-A KAVO_QOS_FW_OUT_HOOK -j SET --map-set kavo_opt_shaper src --map-mark\n"
    "-A KAVO_QOS_FW_OUT_HOOK -j CONNMARK --save-mark --nfmask 0x80003fff --ctmask 0x80003fff\n";
constexpr const char* kRaw =
    "-N QOS_CONNTRACK\n"
    "-A PREROUTING -j QOS_CONNTRACK\n"
    "-A QOS_CONNTRACK -j ACCEPT\n";
constexpr const char* kFilter =
    "-N KAVO_OPT_QOS_HOOK\n"
    "-N OSTREA_FW_OUT_HOOK\n"
    "-N OSTREA_FW_IN_HOOK\n"
    "-A FORWARD -j OSTREA_FW_OUT_HOOK\n"
    "-A FORWARD -j OSTREA_FW_IN_HOOK\n";

GlobalSet line(std::int64_t download = 1'000'000, std::int64_t upload = 1'000'000) {
  return test::line("eth1", download, upload);
}

std::string rules(const GlobalSet& set) {
  std::string list = download_rules(as_given(set, Direction::download), 0x80000003, true);
  append_commands(list, upload_rules(as_given(set, Direction::upload), 0x80000003));
  return list;
}

std::string without(std::string text, const std::string& part) {
  const std::size_t at = text.find(part);
  EXPECT_NE(at, std::string::npos) << part;
  return text.erase(at, part.size());
}

struct Listing {
  std::string mangle = kMangle;
  std::string filter = kFilter;
  std::string raw = kRaw;
};

std::vector<Drift> drift(const Listing& listing, const std::string& commands) {
  StandingFirewall standing;
  read_listing("mangle", listing.mangle, standing);
  read_listing("filter", listing.filter, standing);
  read_listing("raw", listing.raw, standing);
  return firewall_drift(wanted_firewall(commands), standing);
}

// A line for each difference with the command that mends it.
std::string text(const Listing& listing, const std::string& commands = rules(line())) {
  std::string text;
  for (const Drift& one : drift(listing, commands)) {
    text += test::line_of(one);
    for (const Mending& mending : test::mendings_of(one))
      text += "  " + std::get<RunCommand>(mending).command + '\n';
  }
  return text;
}

TEST(FirewallDrift, NoneWhereTheRulesStand) { EXPECT_EQ(text({}), ""); }

TEST(FirewallDrift, AMissingRuleComesBackToItsPlace) {
  Listing listing;
  listing.mangle =
      without(kMangle, "-A KAVO_QOS_FW_OUT_HOOK -m mark ! --mark 0x0/0x80003fff -j RETURN\n");
  EXPECT_EQ(text(listing),
            "missing: firewall rule mangle KAVO_QOS_FW_OUT_HOOK -m mark ! --mark 0x0/0x80003fff -j "
            "RETURN\n"
            "  sudo iptables -t mangle -I KAVO_QOS_FW_OUT_HOOK 4 -m mark '!' --mark "
            "'0x0/0x80003fff' -j RETURN\n");
}

TEST(FirewallDrift, AnUnwantedRuleGoesByItsNumber) {
  Listing listing;
  listing.mangle += "-A KAVO_QOS_FW_OUT_HOOK -s 10.9.9.9/32 -j ACCEPT\n";
  EXPECT_EQ(text(listing),
            "unwanted: firewall rule mangle KAVO_QOS_FW_OUT_HOOK -s 10.9.9.9/32 -j ACCEPT\n"
            "  sudo iptables -t mangle -D KAVO_QOS_FW_OUT_HOOK 8\n");
}

TEST(FirewallDrift, RulesOutOfOrderAreMoved) {
  Listing listing;
  const std::string first = "-A KAVO_QOS_FW_OUT_HOOK ! -o eth1 -j RETURN\n";
  listing.mangle = without(kMangle, first) + first;
  EXPECT_EQ(text(listing),
            "unwanted: firewall rule mangle KAVO_QOS_FW_OUT_HOOK ! -o eth1 -j RETURN\n"
            "  sudo iptables -t mangle -D KAVO_QOS_FW_OUT_HOOK 7\n"
            "missing: firewall rule mangle KAVO_QOS_FW_OUT_HOOK ! -o eth1 -j RETURN\n"
            "  sudo iptables -t mangle -I KAVO_QOS_FW_OUT_HOOK 1 '!' -o eth1 -j RETURN\n");
}

TEST(FirewallDrift, ThePlatformBringsItsChainsBack) {
  Listing listing;
  listing.mangle = without(kMangle, "-A POSTROUTING -j KAVO_QOS_FW_OUT_HOOK\n");
  const std::string script = "  sudo /opt/ostrea/sbin/firewall.init start opt-qos\n";
  EXPECT_EQ(text(listing), "missing: firewall jump to mangle KAVO_QOS_FW_OUT_HOOK\n" + script);
  listing.mangle = "";
  EXPECT_EQ(text(listing), "missing: firewall chain mangle KAVO_QOS_FW_OUT_HOOK\n" + script);
  EXPECT_EQ(text(listing, tracking_as_before()),
            "different: firewall rule raw QOS_CONNTRACK 1: -j ACCEPT, not -j RETURN\n"
            "  sudo iptables -t raw -R QOS_CONNTRACK 1 -j RETURN\n");
  listing.raw = "";
  EXPECT_EQ(text(listing, tracking_as_before()), "");
}

TEST(FirewallDrift, Tracking) {
  Listing listing;
  listing.raw = without(kRaw, "-A QOS_CONNTRACK -j ACCEPT\n") + "-A QOS_CONNTRACK -j RETURN\n";
  EXPECT_EQ(text(listing),
            "different: firewall rule raw QOS_CONNTRACK 1: -j RETURN, not -j ACCEPT\n"
            "  sudo iptables -t raw -R QOS_CONNTRACK 1 -j ACCEPT\n");
  listing.raw = without(kRaw, "-A QOS_CONNTRACK -j ACCEPT\n");
  EXPECT_EQ(text(listing),
            "missing: firewall rule raw QOS_CONNTRACK\n"
            "  sudo /opt/ostrea/sbin/firewall.init start opt-qos\n");
}

TEST(FirewallDrift, AClosedDirectionDrops) {
  const std::string commands = rules(line(1'000'000, 0));
  Listing listing;
  listing.mangle = "-N KAVO_QOS_FW_OUT_HOOK\n";
  EXPECT_EQ(text(listing, commands),
            "missing: firewall rule filter KAVO_OPT_QOS_HOOK -o eth1 -j DROP\n"
            "  sudo iptables -t filter -I KAVO_OPT_QOS_HOOK 1 -o eth1 -j DROP\n"
            "missing: firewall rule filter OSTREA_FW_OUT_HOOK -j KAVO_OPT_QOS_HOOK\n"
            "  sudo iptables -t filter -I OSTREA_FW_OUT_HOOK 1 -j KAVO_OPT_QOS_HOOK\n");
  const std::string jump = "-A OSTREA_FW_OUT_HOOK -j KAVO_OPT_QOS_HOOK\n";
  listing.filter += jump + "-A KAVO_OPT_QOS_HOOK -o eth1 -j DROP\n";
  EXPECT_EQ(text(listing, commands), "");
  listing.filter += jump;
  EXPECT_EQ(text(listing, commands),
            "unwanted: firewall rule filter OSTREA_FW_OUT_HOOK -j KAVO_OPT_QOS_HOOK\n"
            "  sudo iptables -t filter -D OSTREA_FW_OUT_HOOK -j KAVO_OPT_QOS_HOOK\n");
}

TEST(FirewallDrift, AMissingDropChainIsMade) {
  Listing listing;
  listing.filter = without(kFilter, "-N KAVO_OPT_QOS_HOOK\n");
  const std::string found = text(listing, rules(line(0, 1'000'000)));
  EXPECT_EQ(
      found.find("missing: firewall chain filter KAVO_OPT_QOS_HOOK\n  " + drop_chain_commands()),
      found.find("missing:"));
}

TEST(FirewallDrift, ATableThatCannotBeListedIsADifference) {
  StandingFirewall standing;
  read_listing("mangle", kMangle, standing);
  standing.unknown = {"filter", "raw"};
  const std::vector<Drift> found = firewall_drift(wanted_firewall(rules(line(0, 0))), standing);
  ASSERT_GE(found.size(), 2U);
  EXPECT_EQ(to_text(found[0]), "different: firewall table filter: cannot be listed");
  EXPECT_EQ(to_text(found[1]), "different: firewall table raw: cannot be listed");
  for (const std::size_t i : {0U, 1U}) {
    const auto& table = std::get<UnlistedTable>(found[i].cure);
    EXPECT_EQ(table.family, Family::ipv4);
    EXPECT_EQ(table.name, i == 0 ? "filter" : "raw");
  }
  // The marking rules of a line that is closed in both directions, which are none.
  EXPECT_EQ(found.size(), 2U + 7U);
}

TEST(FirewallDrift, NamesThatTheShellWouldObey) {
  GlobalSet set = line();
  set.global.wan = "a;b c";
  Listing listing;
  std::string& mangle = listing.mangle;
  mangle.replace(mangle.find("eth1"), 4, "\"a;b c\"");
  EXPECT_EQ(text(listing, rules(set)), "");
}

}  // namespace
}  // namespace quenby
