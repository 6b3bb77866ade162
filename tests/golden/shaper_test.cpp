#include <sstream>

#include "tests/golden/device_test.h"
#include "tests/golden/router.h"

// The order of an operation's work across devices, address set, connections and firewall.
namespace golden {
namespace {

using quenby::GlobalSet;
using quenby::HtbShaper;
using quenby::TariffSet;

const auto kAmy = tariff("amy", 4, 100'000, {"10.0.0.4"});
const auto kBob = tariff("bob", 5, 200'000, {"10.0.0.5"});
const auto kZed = tariff("zed", 6, 300'000, {"10.0.0.6"});

GlobalSet eth1(std::int64_t upload = kTenMbit) {
  GlobalSet set;
  set.has_global = true;
  set.global = line(kTenMbit, upload);
  return set;
}

// What follows an attribute's name in a decoded request.
std::string value_after(const std::string& request, const std::string& name) {
  const auto place = request.find(name);
  if (place == std::string::npos) return "";
  const auto begin = place + name.size();
  return request.substr(begin, request.find('\n', begin) - begin);
}

// Entries with the last byte of their address and that of their mark, a look at connections with
// that of the mark that it is limited to.
std::string netfilter_line(const std::string& summary, const std::string& request) {
  const std::string address = value_after(request, "IPADDR_IPV4(1) NET_BYTEORDER ");
  std::string mark = value_after(request, " SKBMARK(27) NET_BYTEORDER ");
  if (summary == "IPCTNL_MSG_CT_GET" && value_after(request, " MARK_MASK(21)") == " 80 00 3f ff")
    mark = value_after(request, " MARK(8) ");
  return summary + (address.empty() ? "" : address.substr(8)) +
         (mark.empty() ? "" : " mark" + mark.substr(8, 3));
}

// Commands of the firewall are counted.
std::string changes(const std::string& commands) {
  std::istringstream in(commands);
  std::string text;
  int firewall = 0;
  const auto end_firewall = [&] {
    if (firewall != 0) text += "firewall " + std::to_string(firewall) + "\n";
    firewall = 0;
  };
  for (std::string line; std::getline(in, line);) {
    if (line.starts_with("/sbin/sudo ")) {
      ++firewall;
    } else {
      end_firewall();
      text += (line.starts_with("/sbin/tc ") ? "tc" : line) + "\n";
    }
  }
  end_firewall();
  return text;
}

class ShaperTest : public testing::Test, protected Router {
 protected:
  template <typename Operation>
  std::string run(const Operation& operation) {
    const SbinRun done = Router::run(netfilter_line, [&](HtbShaper& shaper) {
      operation(shaper);
      return std::string();
    });
    return changes(done.commands);
  }

  std::string update(const TariffSet& current, const TariffSet& removed, const TariffSet& added) {
    return run([&](HtbShaper& shaper) { shaper.update_tariffs(eth1(), current, removed, added); });
  }
};

const std::string kUploadLine = R"(RTM_DELQDISC ifindex 3 ingress ffff:0 parent ingress
RTM_NEWQDISC CREATE ifindex 3 htb 8000:0 parent root
RTM_NEWTCLASS CREATE ifindex 3 htb 8000:1 parent 8000:0
RTM_NEWTCLASS CREATE ifindex 3 htb 8000:2 parent 8000:1
RTM_NEWQDISC CREATE ifindex 3 fq_codel 8002:0 parent 8000:2
RTM_DELTFILTER ifindex 3 parent 8000:0 prio 1
RTM_DELTFILTER ifindex 3 fw parent 8000:0 prio 2
)";
const std::string kDownloadLine = R"(RTM_NEWQDISC CREATE ifindex 7 htb 8000:0 parent root
RTM_NEWTCLASS CREATE ifindex 7 htb 8000:1 parent 8000:0
RTM_NEWTCLASS CREATE ifindex 7 htb 8000:2 parent 8000:1
RTM_NEWQDISC CREATE ifindex 7 fq_codel 8002:0 parent 8000:2
RTM_DELTFILTER ifindex 7 parent 8000:0 prio 1
RTM_DELTFILTER ifindex 3 parent ffff:0 prio 1
)";
const std::string kUploadMarks = "RTM_NEWTFILTER CREATE ifindex 3 fw parent 8000:0 prio 1\n";
const std::string kDownloadMarks = "RTM_NEWTFILTER CREATE ifindex 7 fw parent 8000:0 prio 1\n";
const std::string kNewIngress = "RTM_NEWQDISC CREATE ifindex 3 ingress ffff:0 parent ingress\n";
// The rules that mark and the one that tracks; what takes them away, with the drop chain emptied;
// both, one after the other.
const std::string kRules = "firewall 8\n";
const std::string kCleaned = "firewall 4\n";
const std::string kCleanedAndEmptied = "firewall 5\n";
const std::string kCleanedAndSet = "firewall 12\n";
const std::string kMended = "IPCTNL_MSG_CT_GET\n";
const std::string kAmysMended = "IPCTNL_MSG_CT_GET mark 04\n";
const std::string kStrangersMended = "IPCTNL_MSG_CT_GET mark 03\n";

std::string new_class(int device, const std::string& number) {
  return "RTM_NEWTCLASS CREATE ifindex " + std::to_string(device) + " htb 8000:" + number +
         " parent 8000:1\n";
}
std::string gone_class(int device, const std::string& number) {
  return "RTM_DELTCLASS ifindex " + std::to_string(device) + " 8000:" + number + " parent 8000:1\n";
}
std::string root_replaced(int device) {
  return "RTM_NEWTCLASS REPLACE ifindex " + std::to_string(device) + " htb 8000:1 parent 8000:0\n";
}
std::string entry(const std::string& byte, const std::string& mark) {
  return "IPSET_CMD_ADD " + byte + " mark " + mark + "\n";
}

// Connections are marked when the classes stand, and none of another run's rules marks them before.
const std::string kAmyBuilt = "IPSET_CMD_CREATE\n" + kUploadLine + kUploadMarks + kNewIngress +
                              new_class(3, "4") + kDownloadLine + kDownloadMarks + "tc\n" +
                              new_class(7, "4") + entry("04", "04") + kRules + kMended;

TEST_F(ShaperTest, ABuildEndsWithAddressesRulesAndConnections) {
  EXPECT_EQ(run([](HtbShaper& shaper) { shaper.create(eth1(), tariffs({kAmy})); }),
            kCleaned + kAmyBuilt);
}

TEST_F(ShaperTest, ABlockedLineNeedsTheDropChain) {
  const std::string text = run([](HtbShaper& shaper) { shaper.create(eth1(0), tariffs({kAmy})); });
  EXPECT_TRUE(text.starts_with(kCleanedAndEmptied)) << text;
}

TEST_F(ShaperTest, AnAddedTariffGetsItsAddressWhenItsClassesStand) {
  stands(5);
  EXPECT_EQ(update(tariffs({kAmy, kBob}), {}, tariffs({kZed})),
            "IPSET_CMD_TEST 05\n" + root_replaced(3) + new_class(3, "6") + root_replaced(7) +
                new_class(7, "6") + entry("06", "06") + kStrangersMended);
}

TEST_F(ShaperTest, ARemovedTariffLosesItsAddressBeforeItsClasses) {
  stands(5);
  EXPECT_EQ(update(tariffs({kAmy, kBob}), tariffs({kAmy}), {}),
            "IPSET_CMD_TEST 05\nIPSET_CMD_DEL 04\n" + root_replaced(3) + gone_class(3, "4") +
                root_replaced(7) + gone_class(7, "4") + kAmysMended);
}

// Of several owners the last by name has it.
TEST_F(ShaperTest, ASharedAddressGoesToTheOwnerThatStays) {
  stands(6);
  const auto shared = tariff("ann", 7, 1000, {"10.0.0.6"});
  const std::string ours = "IPSET_CMD_TEST 06\nIPSET_CMD_DEL 06\n" + entry("06", "06") +
                           root_replaced(3) + gone_class(3, "7") + new_class(3, "7") +
                           root_replaced(7) + gone_class(7, "7") + new_class(7, "7") +
                           entry("06", "07") + entry("06", "06") + kMended;
  EXPECT_EQ(update(tariffs({shared, kZed}), tariffs({shared}), tariffs({shared})), ours);
}

// The one that had it before has open connections of any mark.
TEST_F(ShaperTest, ASharedAddressGoesToAnOwnerThatComes) {
  stands(6);
  const auto zoe = tariff("zoe", 7, 1000, {"10.0.0.6"});
  EXPECT_EQ(update(tariffs({kBob, kZed}), {}, tariffs({zoe})),
            "IPSET_CMD_TEST 06\n" + root_replaced(3) + new_class(3, "7") + root_replaced(7) +
                new_class(7, "7") + entry("06", "07") + kMended);
}

TEST_F(ShaperTest, LiveConnectionsOfAChangeAreMended) {
  stands(5);
  // One of amy's and one that began before zed was there.
  netfilter.has_connection({kAmy.addresses[0], 1, 0x80000004});
  netfilter.has_connection({kZed.addresses[0], 1, 0x80000003});
  const std::string text = update(tariffs({kAmy, kBob}), tariffs({kAmy}), tariffs({kZed}));
  const std::string mended = entry("06", "06") + kMended + "IPCTNL_MSG_CT_NEW\nIPCTNL_MSG_CT_NEW\n";
  EXPECT_TRUE(text.ends_with(mended)) << text;
}

TEST_F(ShaperTest, WhatDoesNotStandIsBuilt) {
  EXPECT_EQ(update(tariffs({kBob}), tariffs({kBob}), tariffs({kAmy})),
            "IPSET_CMD_DEL 05\n" + kCleaned + kAmyBuilt);
}

TEST_F(ShaperTest, TheLastTariffLeavesTheLine) {
  EXPECT_EQ(update(tariffs({kAmy}), tariffs({kAmy}), {}), "IPSET_CMD_DEL 04\n" + kUploadLine +
                                                              kNewIngress + kDownloadLine + "tc\n" +
                                                              kCleanedAndSet + kAmysMended);
}

TEST_F(ShaperTest, ATeardownTakesRulesAddressesDownloadAndUpload) {
  stands(5);
  EXPECT_EQ(run([](HtbShaper& shaper) { shaper.clear(eth1()); }),
            R"(firewall 7
IPSET_CMD_FLUSH
RTM_DELQDISC ifindex 3 htb 8000:0 parent root
RTM_DELQDISC ifindex 3 ingress ffff:0 parent ingress
RTM_DELLINK "ifb_ingr"
RTM_DELQDISC ifindex 3 ingress ffff:0 parent ingress
)");
}

}  // namespace
}  // namespace golden
