#include <gmock/gmock.h>
#include <sstream>

#include "model/rate_resolution.h"
#include "shaper/desired_state.h"
#include "shaper/firewall_state.h"
#include "shaper/mark_table.h"
#include "shaper/state_drift.h"
#include "shaper/tariff_change.h"
#include "tc/firewall_rules.h"
#include "tests/support/drift.h"
#include "tests/support/tariffs.h"

// What IPv6 adds to the values: state, marks, changes, differences.
namespace quenby {
namespace {

using test::lines_of;
using test::set_of;
using testing::HasSubstr;

constexpr std::int64_t kSpeed = 1'250'000;
constexpr std::int64_t kLink = 125'000'000;

Ip6Prefix prefix(const std::string& text) { return *parse_ip6_prefix(text); }

PrefixSetEntry entry(const std::string& text, unsigned number) {
  return address_set_entry(prefix(text), number);
}

GlobalSet line(bool ipv6, std::int64_t download = kSpeed) {
  GlobalSet set = test::line("eth1", download, kSpeed);
  set.global.ipv6 = ipv6;
  return set;
}

TariffSettings subscriber(const std::string& name, int id,
                          const std::vector<std::string>& prefixes) {
  TariffSettings tariff = test::tariff(name, id);
  tariff.download.speed = tariff.upload.speed = 100'000;
  for (const std::string& text : prefixes) EXPECT_TRUE(tariff.addPrefix(text)) << text;
  return tariff;
}

const TariffSettings kAmy = subscriber("amy", 4, {"2001:db8::/48", "2001:db8:9::1"});
const TariffSettings kBob = subscriber("bob", 5, {"2001:db8:0:5::/64"});

std::string state(const GlobalSet& set, bool has_wan = true) {
  return to_text(desired_state(resolve(set, set_of(kAmy, kBob), kLink), {has_wan, ""}));
}

// The lines that have a word.
std::string lines(const std::string& text, const std::string& word) {
  std::istringstream in(text);
  std::string found;
  for (std::string one; std::getline(in, one);) {
    if (one.find(word) != std::string::npos) found += one + "\n";
  }
  return found;
}

TEST(Ip6State, HasEntriesClassifiersFeedAndRules) {
  const std::string text = state(line(true));
  EXPECT_EQ(lines(text, "set 2001"),
            "set 2001:db8::/48 mark 0x80000004/0x80003fff\n"
            "set 2001:db8:9::1 mark 0x80000004/0x80003fff\n"
            "set 2001:db8:0:5::/64 mark 0x80000005/0x80003fff\n");
  for (const std::string device : {"eth1", "ifb_ingr"}) {
    EXPECT_EQ(lines(text, device + " filter"),
              device + " filter parent 8000: class by mark\n" + device +
                  " filter parent 8000: discovery direct\n" + device +
                  " filter parent 8000: IPv6 class by mark\n");
  }
  EXPECT_THAT(lines(text, "ifb_ingr feed"), HasSubstr("protocol ipv6 pref 2"));
  EXPECT_EQ(lines(text, "class 8000:5").substr(0, 17), "eth1 class 8000:5");
}

TEST(Ip6State, ItsRulesAreThoseOfIPv4WithItsProgramAndSet) {
  const DesiredState state = desired_state(resolve(line(true), set_of(kAmy), kLink), {true, ""});
  std::string rules = state.firewall;
  for (const auto& [from, to] : {std::pair{" iptables ", " ip6tables "},
                                 std::pair{" kavo_opt_shaper ", " kavo_opt_shaper6 "}}) {
    for (std::size_t at = 0; (at = rules.find(from, at)) != std::string::npos; at += 5)
      rules.replace(at, std::string(from).size(), to);
  }
  EXPECT_EQ(state.ip6_firewall, rules);
}

TEST(Ip6State, HasNothingWhereItIsNotShaped) {
  GlobalSet imq = line(true);
  imq.global.wan = "";
  for (const GlobalSet& set : {line(false), imq}) {
    const std::string text = state(set);
    for (const char* word : {"ip6tables", "IPv6", "ipv6", "discovery", "set 2001", "8000:5"})
      EXPECT_EQ(lines(text, word), "") << word;
  }
}

TEST(Ip6State, WithoutTheWanDeviceTheSetIsFilledAllTheSame) {
  const std::string text = state(line(true), false);
  EXPECT_EQ(lines(text, "8000:"), "");
  EXPECT_NE(lines(text, "set 2001"), "");
  EXPECT_EQ(lines(text, "ip6tables"),
            "firewall sudo ip6tables -t raw -R QOS_CONNTRACK 1 -j RETURN\n");
}

TEST(Ip6State, AClosedDownloadKeepsDiscovery) {
  EXPECT_EQ(lines(state(line(true, 0)), "KAVO_OPT_QOS_HOOK"),
            "firewall sudo iptables -t filter -I OSTREA_FW_IN_HOOK 1 -j KAVO_OPT_QOS_HOOK\n"
            "firewall sudo iptables -t filter -A KAVO_OPT_QOS_HOOK -i eth1 -j DROP\n"
            "firewall sudo ip6tables -t filter -I OSTREA_FW_IN_HOOK 1 -j KAVO_OPT_QOS_HOOK\n"
            "firewall sudo ip6tables -t filter -A KAVO_OPT_QOS_HOOK -i eth1 -p ipv6-icmp -m hl "
            "--hl-eq 255 -j RETURN\n"
            "firewall sudo ip6tables -t filter -A KAVO_OPT_QOS_HOOK -i eth1 -j DROP\n");
}

TEST(Ip6State, AClosedUploadHasRoomForDiscovery) {
  for (const bool ipv6 : {true, false}) {
    GlobalSet set = line(ipv6);
    set.global.upload.speed = 0;
    EXPECT_EQ(lines(state(set), "eth1 qdisc 1:"),
              ipv6 ? "eth1 qdisc 1: parent root fq_codel limit 64 quantum 300\n"
                   : "eth1 qdisc 1: parent root fq_codel quantum 300\n");
  }
}

std::uint32_t mark_of(const MarkTable& marks, const std::string& source,
                      const std::string& reply_source) {
  return marks.connection_mark(prefix(source).address, prefix(reply_source).address);
}

TEST(Ip6MarkTable, TheLongestPrefixCounts) {
  const MarkTable marks({}, {entry("2001:db8::/32", 4), entry("2001:db8:0:1::/64", 5),
                             entry("2001:db8::/48", 6), entry("2001:db8:0:1::7", 7)});
  EXPECT_EQ(mark_of(marks, "2001:db8:0:1::7", "3fff::1"), 0x80000007);
  EXPECT_EQ(mark_of(marks, "2001:db8:0:1::8", "3fff::1"), 0x80000005);
  EXPECT_EQ(mark_of(marks, "2001:db8:0:2::7", "3fff::1"), 0x80000006);
  EXPECT_EQ(mark_of(marks, "3fff::1", "2001:db8:1::7"), 0x80000004);
  EXPECT_EQ(mark_of(marks, "3fff::1", "2001:db9::7"), 0x80000003);
}

TEST(Ip6MarkTable, TheLastEntryOfAPrefixCounts) {
  const MarkTable marks({}, {entry("2001:db8::/48", 4), entry("2001:db8::/48", 9)});
  EXPECT_EQ(mark_of(marks, "2001:db8::7", "3fff::1"), 0x80000009);
}

TEST(Ip6Change, APrefixOfTwoTariffsIsTheLastOnesByName) {
  const TariffSettings zed = subscriber("zed", 6, {"2001:db8::/48"});
  const TariffChange gone =
      plan_change(line(true), set_of(kAmy, zed), set_of(zed), TariffSet(), kLink);
  EXPECT_EQ(gone.kept_prefixes, std::vector<PrefixSetEntry>{entry("2001:db8::/48", 4)});
  const TariffChange come = plan_change(line(true), set_of(zed), TariffSet(), set_of(kAmy), kLink);
  EXPECT_EQ(come.settled_prefixes, std::vector<PrefixSetEntry>{entry("2001:db8::/48", 6)});
  EXPECT_EQ(come.reason, ChangeReason::in_place);
}

TEST(Ip6Change, PrefixesCountForNothingWhereIPv6IsNotShaped) {
  const TariffSettings zed = subscriber("zed", 6, {"2001:db8::/48"});
  const TariffChange change =
      plan_change(line(false), set_of(kAmy, zed), set_of(zed), set_of(kBob), kLink);
  EXPECT_TRUE(change.kept_prefixes.empty());
  EXPECT_TRUE(change.settled_prefixes.empty());
  EXPECT_TRUE(change.created(Direction::upload).empty());
}

TEST(Ip6SetDrift, OfPrefixes) {
  const PrefixSetEntry wide = entry("2001:db8::/48", 4);
  const PrefixSetEntry narrow = entry("2001:db8::/64", 5);
  const PrefixSetDrift drift =
      prefix_set_drift({wide}, true, StandingPrefixSet{"hash:net", {narrow}});
  EXPECT_EQ(lines_of(drift.found),
            "unwanted: set prefix 2001:db8::/64\nmissing: set prefix 2001:db8::/48\n");
  EXPECT_TRUE(test::are_mended_otherwise(drift.found));
  EXPECT_EQ(drift.put, std::vector<PrefixSetEntry>{wide});
  EXPECT_EQ(drift.drop, std::vector<Ip6Prefix>{narrow.address});
  EXPECT_EQ(
      lines_of(prefix_set_drift({narrow, wide}, true, StandingPrefixSet{"hash:net", {wide, narrow}})
                   .found),
      "");
}

TEST(Ip6SetDrift, OfTheSetItself) {
  const PrefixSetDrift missing = prefix_set_drift({entry("2001:db8::1", 4)}, true, std::nullopt);
  EXPECT_EQ(lines_of(missing.found), "missing: set kavo_opt_shaper6\n");
  EXPECT_TRUE(test::are_mended_otherwise(missing.found));
  EXPECT_TRUE(missing.make);
  const auto other = prefix_set_drift({}, true, StandingPrefixSet{"hash:ip", {}});
  EXPECT_EQ(lines_of(other.found), "different: set kavo_opt_shaper6: type hash:ip\n");
  EXPECT_EQ(std::get<OtherSetType>(other.found[0].cure).name, "kavo_opt_shaper6");
}

TEST(Ip6FirewallDrift, OfATableThatCannotBeListed) {
  StandingFirewall standing;
  standing.unknown = {"mangle"};
  const auto found = firewall_drift({}, standing, Family::ipv6);
  ASSERT_EQ(found.size(), 1U);
  const auto& table = std::get<UnlistedTable>(found[0].cure);
  EXPECT_EQ(table.family, Family::ipv6);
  EXPECT_EQ(table.name, "mangle");
}

TEST(Ip6FirewallDrift, IsMendedByItsOwnProgram) {
  const std::string commands =
      upload_rules(as_given(line(true), Direction::upload), 0x80000003, Family::ipv6);
  StandingFirewall standing;
  read_listing("mangle",
               "-N KAVO_QOS_FW_OUT_HOOK\n-A POSTROUTING -j KAVO_QOS_FW_OUT_HOOK\n"
               "-A KAVO_QOS_FW_OUT_HOOK -j SET --map-set kavo_opt_shaper src --map-mark\n",
               standing);
  const auto found = firewall_drift(wanted_firewall(commands), standing, Family::ipv6);
  ASSERT_EQ(found.size(), 8U);
  EXPECT_EQ(to_text(found[1]),
            "missing: firewall IPv6 rule mangle KAVO_QOS_FW_OUT_HOOK -j SET --map-set "
            "kavo_opt_shaper6 src --map-mark");
  EXPECT_EQ(std::get<RunCommand>(test::mendings_of(found[1])[0]).command.substr(0, 55),
            "sudo ip6tables -t mangle -I KAVO_QOS_FW_OUT_HOOK 2 -j S");
  EXPECT_THAT(lines_of(found),
              HasSubstr("unwanted: firewall IPv6 rule mangle KAVO_QOS_FW_OUT_HOOK -j "
                        "SET --map-set kavo_opt_shaper src --map-mark\n"));
}

}  // namespace
}  // namespace quenby
