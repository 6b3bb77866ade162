#include "tc/device_drift.h"

#include <arpa/inet.h>
#include <linux/if_ether.h>

#include <algorithm>
#include <gtest/gtest.h>

#include "model/rate_resolution.h"
#include "tc/classes.h"
#include "tc/filters.h"
#include "tc/qdiscs.h"
#include "tests/support/drift.h"
#include "tests/support/tariffs.h"

// In what a device differs from its tree, and what mends it. What stands is read from the requests
// that make it, as the kernel would list it.
namespace quenby {
namespace {

using test::mendings_of;

constexpr std::int64_t kTenMbit = 1'250'000;
constexpr int kIndex = 7;

// A line with two tariffs; amy's leaf is fq_codel, bob has none.
DeviceTree tree_of(const Side& side, std::int64_t speed = kTenMbit) {
  GlobalSet set;
  set.has_global = true;
  set.global.wan = side.by_mark() ? "eth1" : "";
  TariffSettings amy = test::tariff("amy", 4);
  TariffSettings bob = test::tariff("bob", 5);
  amy.addCIDR("10.0.0.4");
  bob.addCIDR("10.0.0.5");
  amy.setQDisc("fq_codel");
  for (const Direction way : kDirections) {
    set.global.direction(way).speed = speed;
    amy.direction(way).speed = bob.direction(way).speed = 125'000;
  }
  return device_tree(side, resolve(set, test::set_of(amy, bob), 125'000'000));
}

class StandingTest : public testing::Test {
 protected:
  // What stands after the tree has been made.
  void make(const DeviceTree& tree) {
    standing.ifindex = kIndex;
    standing.up = true;
    for (const auto& qdisc : {tree.root, tree.ingress}) {
      if (qdisc) add(*qdisc);
    }
    for (const auto* const branches : {&tree.line, &tree.tariffs}) {
      for (const ClassBranch& branch : *branches) {
        add(branch.htb);
        if (branch.leaf) add(*branch.leaf);
        for (const AddressFilters& match : branch.matches) add(match);
      }
    }
    if (tree.path.classifier) standing.filters.push_back(by_mark());
  }

  void add(const Qdisc& qdisc) {
    standing.qdiscs.push_back(*read_qdisc(nlmsg_hdr(qdisc_request(device, qdisc).get())));
  }
  void add(const HtbClass& htb) {
    standing.classes.push_back(*read_class(nlmsg_hdr(class_request(device, htb).get())));
  }
  void add(const AddressFilters& match) {
    if (match.table) standing.filters.push_back(table(*match.table));
    if (match.link) standing.filters.push_back(u32(*match.link));
    standing.filters.push_back(u32(match.address));
  }

  static StandingFilter by_mark() {
    StandingFilter filter;
    filter.kind = "bpf";
    filter.handle = 1;
    filter.prio = kClassifierPrio;
    filter.protocol = ETH_P_IP;
    filter.by_mark = true;
    return filter;
  }
  static StandingFilter u32(const U32Filter& match) {
    StandingFilter filter = by_mark();
    filter.kind = "u32";
    filter.handle = match.handle();
    filter.by_mark = false;
    filter.match = match;
    return filter;
  }
  static StandingFilter table(const U32Table& table) {
    StandingFilter filter = u32({});
    filter.handle = u32_handle(table.id);
    filter.match.reset();
    filter.table = table;
    return filter;
  }

  std::vector<Drift> drift(const DeviceTree& tree, const char* kind = "") {
    return device_drift({device, kind, {&tree}}, standing);
  }
  std::string text(const DeviceTree& tree, const char* kind = "") {
    return test::lines_of(drift(tree, kind));
  }

  TcObject& standing_class(unsigned minor) {
    return *std::find_if(
        standing.classes.begin(), standing.classes.end(),
        [&](const TcObject& object) { return object.handle == class_handle(minor); });
  }
  void forget_class(unsigned minor) {
    std::erase_if(standing.classes,
                  [&](const TcObject& object) { return object.handle == class_handle(minor); });
  }

  TcObject& standing_qdisc(std::uint32_t parent) {
    return *std::find_if(standing.qdiscs.begin(), standing.qdiscs.end(),
                         [&](const TcObject& object) { return object.parent == parent; });
  }

  Device device{"eth1", nullptr, nullptr, kIndex};
  StandingDevice standing;
  const DeviceTree upload = tree_of(mark_side(Direction::upload));
};

// The WAN device after its tree has been made.
class DeviceDriftTest : public StandingTest {
 protected:
  DeviceDriftTest() { make(upload); }
};

TEST_F(DeviceDriftTest, NoneWhereEverythingStands) { EXPECT_EQ(text(upload), ""); }

TEST_F(DeviceDriftTest, AnObjectsPropertiesAreThoseOfItsRequest) {
  HtbClass htb = upload.tariffs[0].htb;
  const auto changed = [&](auto change) {
    HtbClass other = htb;
    change(other);
    standing.classes.clear();
    for (const ClassBranch& branch : upload.line) add(branch.htb);
    add(other);
    add(upload.tariffs[1].htb);
    return text(upload);
  };
  const std::string start = "different: eth1 class 8000:4: ";
  EXPECT_EQ(changed([](HtbClass& c) {
              c.ceil = 250'000;
            }).find(start + "ceil 250000 bytes/s, not 125000"),
            0);
  EXPECT_EQ(changed([](HtbClass& c) { c.burst = 60'000; }),
            start + "burst 60000 bytes, not 30000 bytes\n");
  EXPECT_EQ(changed([](HtbClass& c) { c.quantum = 1500; }),
            start + "quantum 1500 bytes, not 12500 bytes\n");
  EXPECT_EQ(changed([](HtbClass&) {}), "");
}

TEST_F(DeviceDriftTest, AClassThatDiffersIsChangedInPlace) {
  standing_class(4).properties[0] = {"rate", 1, 1, "bytes/s"};
  const std::vector<Drift> found = drift(upload);
  ASSERT_EQ(found.size(), 1U);
  ASSERT_EQ(mendings_of(found[0]).size(), 1U);
  EXPECT_EQ(std::get<ChangeClass>(mendings_of(found[0])[0]).htb, upload.tariffs[0].htb);
}

TEST_F(DeviceDriftTest, AMissingClassStandsForItsLeaf) {
  forget_class(4);
  std::erase_if(standing.qdiscs,
                [](const TcObject& qdisc) { return qdisc.parent == class_handle(4); });
  const std::vector<Drift> found = drift(upload);
  EXPECT_EQ(text(upload), "missing: eth1 class 8000:4\n");
  ASSERT_EQ(mendings_of(found[0]).size(), 2U);
  EXPECT_EQ(std::get<MakeClass>(mendings_of(found[0])[0]).htb, upload.tariffs[0].htb);
  EXPECT_EQ(std::get<MakeQdisc>(mendings_of(found[0])[1]).qdisc, *upload.tariffs[0].leaf);
}

TEST_F(DeviceDriftTest, AClassOfNobodysGoesLastUnlessItIsUnderATariffs) {
  HtbClass stray = upload.tariffs[0].htb;
  stray.handle = class_handle(0x77);
  add(stray);
  const std::vector<Drift> found = drift(upload);
  EXPECT_EQ(text(upload), "unwanted: eth1 class 8000:77\n");
  EXPECT_TRUE(found[0].last);
  EXPECT_EQ(std::get<DropClass>(mendings_of(found[0])[0]).handle, class_handle(0x77));
  standing.classes.back().parent = class_handle(5);
  EXPECT_FALSE(drift(upload)[0].last);
}

TEST_F(DeviceDriftTest, AnotherParentIsMadeAgain) {
  standing_class(5).parent = class_handle(4);
  const std::vector<Drift> found = drift(upload);
  EXPECT_EQ(text(upload), "different: eth1 class 8000:5: parent 8000:4, not 8000:1\n");
  ASSERT_EQ(mendings_of(found[0]).size(), 2U);
  EXPECT_EQ(std::get<DropClass>(mendings_of(found[0])[0]).parent, class_handle(4));
  EXPECT_EQ(std::get<MakeClass>(mendings_of(found[0])[1]).htb, upload.tariffs[1].htb);
}

TEST_F(DeviceDriftTest, TheKernelNamesTheRootOtherwise) {
  standing_class(1).parent = TC_H_ROOT;
  EXPECT_EQ(text(upload), "");
}

TEST_F(DeviceDriftTest, LeavesOfAnotherKind) {
  standing_qdisc(class_handle(4)).kind = "pfifo";
  const std::vector<Drift> found = drift(upload);
  EXPECT_EQ(text(upload), "different: eth1 qdisc 8004: pfifo 8004:, not fq_codel\n");
  EXPECT_EQ(std::get<DropQdisc>(mendings_of(found[0])[0]).kind, "pfifo");
  EXPECT_EQ(std::get<MakeQdisc>(mendings_of(found[0])[1]).qdisc, *upload.tariffs[0].leaf);
}

TEST_F(DeviceDriftTest, AMissingRootStandsForTheTree) {
  standing.qdiscs.clear();
  standing.classes.clear();
  standing.filters.clear();
  const std::vector<Drift> found = drift(upload);
  EXPECT_EQ(text(upload), "missing: eth1 qdisc 8000:\nmissing: eth1 qdisc ffff:\n");
  // The root, three classes with two leaves, the classes of two tariffs with one, the classifier.
  const std::size_t line = upload.line.size();
  EXPECT_EQ(mendings_of(found[0]).size(), 1 + line + (line - 1) + 3 + 1);
  EXPECT_TRUE(std::holds_alternative<MakeClassifier>(mendings_of(found[0]).back()));
}

TEST_F(DeviceDriftTest, ARootOfAnotherKindGoesFirst) {
  standing_qdisc(TC_H_ROOT).kind = "fq_codel";
  const std::vector<Drift> found = drift(upload);
  EXPECT_EQ(text(upload), "different: eth1 qdisc 8000: fq_codel 8000:, not htb\n");
  EXPECT_TRUE(std::holds_alternative<DropRoot>(mendings_of(found[0])[0]));
  EXPECT_TRUE(std::holds_alternative<MakeQdisc>(mendings_of(found[0])[1]));
}

TEST_F(DeviceDriftTest, OnlyOurRootIsUnwanted) {
  const DeviceTree nothing;
  EXPECT_EQ(text(nothing), "unwanted: eth1 qdisc 8000:\n");
  for (TcObject& qdisc : standing.qdiscs) qdisc.handle = 0x80010000;
  EXPECT_EQ(text(nothing), "");
  standing.qdiscs.clear();
  add(plain_root(0));
  EXPECT_EQ(text(nothing), "unwanted: eth1 qdisc 1:\n");
  standing.qdiscs[0].properties[0].value = 1000;
  EXPECT_EQ(text(nothing), "");
}

TEST_F(StandingTest, MissingDevices) {
  const DeviceTree download = tree_of(mark_side(Direction::download));
  device = {"ifb_ingr", nullptr, nullptr, 0};
  const std::vector<Drift> found = drift(download, "ifb");
  EXPECT_EQ(text(download, "ifb"), "missing: ifb_ingr\n");
  EXPECT_TRUE(std::holds_alternative<MakeDevice>(mendings_of(found[0])[0]));
  EXPECT_GT(mendings_of(found[0]).size(), 5U);
  EXPECT_EQ(text(upload), "");
  EXPECT_EQ(text(DeviceTree(), "ifb"), "");
}

TEST_F(DeviceDriftTest, DevicesThatAreDown) {
  standing.up = false;
  EXPECT_EQ(text(upload, "ifb"), "different: eth1 link: down, not up\n");
  EXPECT_EQ(text(upload), "");
}

TEST_F(DeviceDriftTest, Classifiers) {
  standing.filters[0].prio = 2;
  EXPECT_EQ(text(upload),
            "unwanted: eth1 filter bpf of priority 2\nmissing: eth1 filter by mark\n");
  standing.filters = {by_mark(), by_mark()};
  EXPECT_EQ(text(upload), "unwanted: eth1 filter bpf of priority 1\n");
  standing.filters[1].by_mark = false;
  EXPECT_EQ(text(upload), "unwanted: eth1 filter bpf of priority 1\n");
  standing.filters.clear();
  EXPECT_EQ(text(upload), "missing: eth1 filter by mark\n");
}

TEST_F(DeviceDriftTest, AnIngressOfAnotherKindIsLeftAlone) {
  standing_qdisc(TC_H_INGRESS).kind = "clsact";
  EXPECT_EQ(text(upload), "different: eth1 qdisc ffff: clsact, not ingress\n");
  EXPECT_EQ(std::get<OtherIngress>(drift(upload)[0].cure).kind, "clsact");
}

class MatchDriftTest : public StandingTest {
 protected:
  MatchDriftTest() {
    device.name = "imq0";
    make(tree);
    add(*tree.base);
  }

  void add(const AddressBase& base) {
    standing.filters.push_back(table(base.table));
    standing.filters.push_back(u32(base.link));
  }
  using StandingTest::add;

  // Whether a filter leads to a class.
  static bool is_match(const StandingFilter& f) { return f.match && f.match->classid != 0; }
  StandingFilter& first_match() {
    return *std::find_if(standing.filters.begin(), standing.filters.end(), is_match);
  }

  const DeviceTree tree = [] {
    DeviceTree made = tree_of(imq_side(Direction::download));
    made.root = htb_root(false);
    return made;
  }();
};

TEST_F(MatchDriftTest, NoneWhereEverythingStands) {
  EXPECT_EQ(text(tree), "");
  for (StandingFilter& filter : standing.filters) {
    // The kernel may have chosen another node.
    if (filter.match) filter.match->node += 0x100;
  }
  EXPECT_EQ(text(tree), "");
}

// A change in place takes a tariff's matches away and leaves the way to their table.
TEST_F(MatchDriftTest, ALinkWithoutMatchesIsNone) {
  AddressTree addresses(HandleScheme::imq_download);
  const AddressFilters last = addresses.add(inet_addr("10.0.31.15"), 9);
  standing.filters.push_back(table(*last.table));
  standing.filters.push_back(u32(*last.link));
  EXPECT_EQ(text(tree), "");
  standing.filters.back().match->link_table = 3;
  EXPECT_EQ(text(tree), "unwanted: imq0 u32 2:f:0 at 16 link 3: by ff\n");
  standing.filters.back().match->link_table = last.link->link_table;
  standing.filters.back().match->offset = 12;
  EXPECT_EQ(text(tree), "unwanted: imq0 u32 2:f:0 at 12 link 12: by ff\n");
  standing.filters.pop_back();
  standing.filters.push_back(u32(last.address));
  EXPECT_EQ(text(tree), "unwanted: imq0 u32 12:f:0 at 16 match 10.0.31.15 class 8000:9\n");
}

TEST_F(MatchDriftTest, ALinkThatTellsBucketsByOtherBitsIsAnother) {
  for (StandingFilter& filter : standing.filters) {
    if (!filter.match || filter.match->link_table == 0) continue;
    U32Filter& link = *filter.match;
    SCOPED_TRACE(link.link_table);
    const U32Filter ours = link;
    link.hash_mask ^= 0xf0;
    EXPECT_THAT(text(tree), testing::MatchesRegex("unwanted: .*\nmissing: .*\n"));
    link = ours;
    link.hash_offset += 4;
    EXPECT_THAT(text(tree), testing::MatchesRegex("unwanted: .*\nmissing: .*\n"));
    link = ours;
  }
}

TEST_F(MatchDriftTest, MatchesThatAreMissingOrOneTooMany) {
  StandingFilter twin = first_match();
  twin.handle += 0x100;
  standing.filters.push_back(twin);
  EXPECT_EQ(text(tree), "unwanted: imq0 u32 3:4:0 at 16 match 10.0.0.4 class 8000:4\n");
  std::erase_if(standing.filters, is_match);
  EXPECT_EQ(text(tree),
            "missing: imq0 u32 3:4:0 at 16 match 10.0.0.4 class 8000:4\n"
            "missing: imq0 u32 3:5:0 at 16 match 10.0.0.5 class 8000:5\n");
}

TEST_F(MatchDriftTest, ANodeThatIsTakenIsLeftToTheKernel) {
  first_match().match->classid = class_handle(5);
  const std::vector<Drift> found = drift(tree);
  ASSERT_EQ(found.size(), 2U);
  EXPECT_EQ(std::get<DropFilter>(mendings_of(found[0])[0]).handle, first_match().handle);
  EXPECT_FALSE(std::get<MakeMatch>(mendings_of(found[1])[0]).match.own_node);
}

TEST_F(MatchDriftTest, TablesComeBeforeTheirMatches) {
  standing.filters.clear();
  const std::vector<Drift> found = drift(tree);
  EXPECT_EQ(to_text(found[0]), "missing: imq0 table 2:");
  EXPECT_TRUE(std::holds_alternative<MakeTable>(mendings_of(found[0])[0]));
  EXPECT_EQ(to_text(found[1]), "missing: imq0 table 3:");
}

TEST_F(MatchDriftTest, NoTablesAreMissedWhereNoAddressLeadsAnywhere) {
  DeviceTree line = tree;
  line.tariffs.clear();
  standing.filters.clear();
  forget_class(4);
  forget_class(5);
  EXPECT_EQ(text(line), "");
}

// A line for each difference of a WAN device with these redirections, and the number of its
// mendings.
std::string redirections(const IngressFilters& standing, bool fed = true, bool ip6_fed = false) {
  MarkPath path;
  path.classifier = true;
  if (fed) path.feed = "feed";
  if (ip6_fed) path.ip6_feed = "feed6";
  std::string text;
  for (const Drift& one : redirection_drift({"eth1", nullptr, nullptr, 3}, path, kIndex, standing))
    text += to_text(one) + ' ' + std::to_string(mendings_of(one).size()) + '\n';
  return text;
}

TEST(RedirectionDrift, StandsOnceWithMarksAndOthersAreLeftAloneButForThoseThatDrop) {
  const Redirection ours{1, kIndex, true};
  const struct {
    std::vector<Redirection> standing;
    const char* text;
    bool fed = true;
  } rows[] = {
      {{ours}, ""},
      {{}, "missing: eth1 redirection to ifb_ingr 1\n"},
      {{{1, kIndex, false}},
       "different: eth1 redirection to ifb_ingr: without marks, not with them 2\n"},
      {{ours, {2, kIndex, true}}, "unwanted: eth1 redirection to ifb_ingr 1\n"},
      {{ours, {2, 99, true}}, ""},
      {{ours, {2, 0, true}}, "unwanted: eth1 redirection to a device that is gone 1\n"},
      {{ours}, "unwanted: eth1 redirection to ifb_ingr 1\n", false},
  };
  for (const auto& row : rows) EXPECT_EQ(redirections({row.standing, false}, row.fed), row.text);
}

class Ip6DeviceDriftTest : public StandingTest {
 protected:
  Ip6DeviceDriftTest() {
    tree = tree_of(mark_side(Direction::upload));
    make(tree);
    tree.path.ipv6 = true;
  }

  void stand(unsigned prio, StandingFilter filter) {
    filter.prio = prio;
    filter.protocol = ETH_P_IPV6;
    standing.filters.push_back(filter);
  }
  static StandingFilter discovery(std::uint32_t classid = kHtbHandle) {
    U32Filter match = discovery_filter();
    match.classid = classid;
    return u32(match);
  }

  DeviceTree tree;
};

TEST_F(Ip6DeviceDriftTest, BothClassifiersAreMissed) {
  EXPECT_EQ(text(tree),
            "missing: eth1 filter of IPv6 discovery\nmissing: eth1 IPv6 filter by mark\n");
  const std::vector<Drift> found = drift(tree);
  EXPECT_TRUE(std::holds_alternative<MakeDiscovery>(mendings_of(found[0]).at(0)));
  EXPECT_EQ(std::get<MakeClassifier>(mendings_of(found[1]).at(0)).family, Family::ipv6);
}

TEST_F(Ip6DeviceDriftTest, NoneWhereTheyStand) {
  stand(kDiscoveryPrio, discovery());
  stand(kIp6ClassifierPrio, by_mark());
  EXPECT_EQ(text(tree), "");
}

TEST_F(Ip6DeviceDriftTest, OthersAreUnwanted) {
  stand(kDiscoveryPrio, discovery(kHtbHandle | 5));
  stand(kDiscoveryPrio, discovery());
  stand(kDiscoveryPrio, discovery());
  stand(kIp6ClassifierPrio, by_mark());
  stand(9, by_mark());
  EXPECT_EQ(text(tree),
            "unwanted: eth1 IPv6 filter u32 of priority 3\n"
            "unwanted: eth1 IPv6 filter u32 of priority 3\n"
            "unwanted: eth1 IPv6 filter bpf of priority 9\n");
}

TEST_F(Ip6DeviceDriftTest, AllAreWhereIPv6IsNotShaped) {
  stand(kDiscoveryPrio, discovery());
  stand(kIp6ClassifierPrio, by_mark());
  tree.path.ipv6 = false;
  EXPECT_EQ(text(tree),
            "unwanted: eth1 IPv6 filter u32 of priority 3\n"
            "unwanted: eth1 IPv6 filter bpf of priority 4\n");
}

// The same of IPv6, where the redirection of IPv4 stands.
std::string found_of(const std::vector<StandingIp6Redirection>& ip6, bool wanted = true) {
  IngressFilters standing;
  standing.redirections = {{0x80000800, kIndex, true}};
  standing.ip6 = ip6;
  return redirections(standing, true, wanted);
}

std::vector<StandingIp6Redirection> all_of(bool marks) {
  std::vector<StandingIp6Redirection> list;
  for (const Ip6Redirection& filter : ip6_redirections(marks)) list.push_back({filter, 1, kIndex});
  return list;
}

TEST(Ip6RedirectionDrift, TheFiltersAreOneThing) {
  EXPECT_EQ(found_of(all_of(true)), "");
  EXPECT_EQ(found_of({}), "missing: eth1 IPv6 redirection to ifb_ingr 1\n");
  EXPECT_EQ(found_of({}, false), "");
  EXPECT_EQ(found_of(all_of(true), false), "unwanted: eth1 IPv6 redirection to ifb_ingr 6\n");
}

TEST(Ip6RedirectionDrift, OtherFiltersAreMadeAgain) {
  const std::string other =
      "different: eth1 IPv6 redirection to ifb_ingr: other filters, or in another order ";
  EXPECT_EQ(found_of(all_of(false)), other + "7\n");
  auto list = all_of(true);
  std::swap(list[0], list[5]);
  EXPECT_EQ(found_of(list), other + "7\n");
  list = all_of(true);
  list.erase(list.begin());
  EXPECT_EQ(found_of(list), other + "6\n");
  list = all_of(true);
  list.back().target = 0;
  EXPECT_EQ(found_of(list), other + "7\n");
  list.back().target = kIndex + 1;
  EXPECT_EQ(found_of(list), other + "6\n");
}

}  // namespace
}  // namespace quenby
