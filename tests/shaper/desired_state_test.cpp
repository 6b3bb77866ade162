#include "shaper/desired_state.h"

#include <gtest/gtest.h>
#include <sstream>

#include "model/rate_resolution.h"
#include "shaper/packet_steering.h"
#include "tests/support/tariffs.h"

// All that the kernel is to hold, as text. Rates in bytes per second.
namespace quenby {
namespace {

using test::line;
using test::set_of;

constexpr std::int64_t kUnset = -2;
constexpr std::int64_t kGigabit = 125'000'000;

TariffSettings subscriber(const std::string& name, int id, const std::string& address,
                          const std::string& qdisc) {
  TariffSettings tariff = test::tariff(name, id);
  tariff.download.speed = 500'000;
  tariff.upload.speed = 250'000;
  tariff.addCIDR(address);
  tariff.setQDisc(qdisc);
  return tariff;
}

const TariffSettings kAmy = subscriber("amy", 4, "10.0.1.4", "fq_codel");
const TariffSettings kBob = subscriber("bob", 5, "10.0.1.5", "none");

std::string state(const GlobalSet& set, const TariffSet& tariffs, const RouterFacts& facts) {
  return to_text(desired_state(resolve(set, tariffs, kGigabit), facts));
}

// The lines that begin so.
std::string lines(const std::string& text, const std::string& start) {
  std::istringstream in(text);
  std::string found;
  for (std::string one; std::getline(in, one);) {
    if (one.rfind(start, 0) == 0) found += one + "\n";
  }
  return found;
}

constexpr const char* kRedirect =
    "ifb_ingr feed /sbin/tc filter add dev eth1 parent ffff: protocol ip pref 1 u32 match u32 0 0 "
    "action connmark action mirred egress redirect dev ifb_ingr\n";

TEST(DesiredState, OfAWanDeviceNamesEveryObject) {
  GlobalSet set = line("eth1", 1'250'000, 625'000);
  set.has_default = true;
  set.defaults.download.speed = set.defaults.download.ceiling = 125'000;
  const std::string text = state(set, set_of(kAmy, kBob), {true, ""});
  EXPECT_EQ(lines(text, "eth1 "),
            "eth1 qdisc 8000: parent root htb default 2\n"
            "eth1 class 8000:1 parent 8000: rate 625000 ceil 625000 burst 150000 cburst 150000 "
            "quantum 62500\n"
            "eth1 class 8000:2 parent 8000:1 rate 8 ceil 625000 burst 8 cburst 150000 "
            "quantum 1000\n"
            "eth1 qdisc 8002: parent 8000:2 fq_codel limit 600 quantum 300\n"
            "eth1 filter parent 8000: class by mark\n"
            "eth1 qdisc ffff: parent ingress ingress\n"
            "eth1 class 8000:4 parent 8000:1 rate 250000 ceil 250000 burst 60000 cburst 60000 "
            "quantum 25000\n"
            "eth1 qdisc 8004: parent 8000:4 fq_codel limit 600 quantum 300\n"
            "eth1 class 8000:5 parent 8000:1 rate 250000 ceil 250000 burst 60000 cburst 60000 "
            "quantum 25000\n");
  EXPECT_EQ(lines(text, "ifb_ingr "),
            std::string("ifb_ingr qdisc 8000: parent root htb default 2\n"
                        "ifb_ingr class 8000:1 parent 8000: rate 1250000 ceil 1250000 "
                        "burst 300000 cburst 300000 quantum 125000\n"
                        "ifb_ingr class 8000:2 parent 8000:1 rate 8 ceil 1250000 burst 8 "
                        "cburst 300000 quantum 1000\n"
                        "ifb_ingr qdisc 8002: parent 8000:2 fq_codel limit 600 quantum 300\n"
                        "ifb_ingr class 8000:3 parent 8000:1 rate 125000 ceil 125000 "
                        "burst 30000 cburst 30000 quantum 12500\n"
                        "ifb_ingr qdisc 8003: parent 8000:3 fq_codel limit 600 quantum 300\n"
                        "ifb_ingr filter parent 8000: class by mark\n") +
                kRedirect +
                "ifb_ingr class 8000:4 parent 8000:1 rate 500000 ceil 500000 burst 120000 "
                "cburst 120000 quantum 50000\n"
                "ifb_ingr qdisc 8004: parent 8000:4 fq_codel limit 600 quantum 300\n"
                "ifb_ingr class 8000:5 parent 8000:1 rate 500000 ceil 500000 burst 120000 "
                "cburst 120000 quantum 50000\n");
  EXPECT_EQ(lines(text, "set "),
            "set 10.0.1.4 mark 0x80000004/0x80003fff\nset 10.0.1.5 mark 0x80000005/0x80003fff\n");
  EXPECT_EQ(lines(text, "firewall ").find("firewall sudo iptables -t raw -R QOS_CONNTRACK 1"), 0U);
}

TEST(DesiredState, WithoutTheWanDeviceThereIsNothingToHangOn) {
  const std::string text = state(line("eth1", 1'250'000, 625'000), set_of(kAmy), {false, ""});
  EXPECT_EQ(text,
            "set 10.0.1.4 mark 0x80000004/0x80003fff\n"
            "firewall sudo iptables -t raw -R QOS_CONNTRACK 1 -j RETURN\n");
}

TEST(DesiredState, OfABlockedUploadIsAPlainQueue) {
  const std::string text = state(line("eth1", 1'250'000, 0), set_of(kAmy), {true, ""});
  EXPECT_EQ(lines(text, "eth1 "),
            "eth1 qdisc 1: parent root fq_codel quantum 300\n"
            "eth1 qdisc ffff: parent ingress ingress\n");
}

TEST(DesiredState, ADirectionWithoutSpeedHasNoClasses) {
  TariffSettings download_only = kAmy;
  download_only.upload.speed = kUnset;
  const std::string text = state(line("eth1", kUnset, kUnset), set_of(download_only), {true, ""});
  EXPECT_EQ(lines(text, "eth1 "), "eth1 qdisc ffff: parent ingress ingress\n");
  EXPECT_EQ(lines(text, "ifb_ingr qdisc 8000:"), "ifb_ingr qdisc 8000: parent root htb\n");
  EXPECT_EQ(lines(text, "ifb_ingr class 8000:2"), "");
}

TEST(DesiredState, OfTheImqDeviceClassifiesByAddress) {
  const std::string text = state(line("", kUnset, 625'000), set_of(kAmy), {});
  EXPECT_EQ(text,
            "imq0 qdisc 8000: parent root htb\n"
            "imq0 class 8000:8001 parent 8000: rate 625000 ceil 625000 burst 150000 "
            "cburst 150000 quantum 62500\n"
            "imq0 table 13: buckets 16\n"
            "imq0 u32 0:0:2 at 12 link 13: by ff00\n"
            "imq0 class 8000:8004 parent 8000:8001 rate 250000 ceil 250000 burst 60000 "
            "cburst 60000 quantum 25000\n"
            "imq0 table 15: buckets 256\n"
            "imq0 u32 13:1:0 at 12 link 15: by ff\n"
            "imq0 u32 15:4:0 at 12 match 10.0.1.4 class 8000:8004\n"
            "imq0 qdisc ce24: parent 8000:8004 fq_codel limit 600 quantum 300\n"
            "imq0 class 8000:1 parent 8000: rate 500000 ceil 500000 burst 120000 "
            "cburst 120000 quantum 50000\n"
            "imq0 table 2: buckets 16\n"
            "imq0 u32 0:0:1 at 16 link 2: by ff00\n"
            "imq0 class 8000:4 parent 8000:1 rate 500000 ceil 500000 burst 120000 "
            "cburst 120000 quantum 50000\n"
            "imq0 table 4: buckets 256\n"
            "imq0 u32 2:1:0 at 16 link 4: by ff\n"
            "imq0 u32 4:4:0 at 16 match 10.0.1.4 class 8000:4\n"
            "imq0 qdisc 8004: parent 8000:4 fq_codel limit 600 quantum 300\n"
            "firewall sudo iptables -t mangle -A KAVO_QOS_FW_OUT_HOOK -m addrtype "
            "--src-type=LOCAL -j RETURN\n"
            "firewall sudo iptables -t mangle -A KAVO_QOS_FW_OUT_HOOK -j IMQ --todev 0\n"
            "firewall sudo iptables -t raw -R QOS_CONNTRACK 1 -j RETURN\n");
}

TEST(DesiredState, SteersPacketsOnTheBoardThatNeedsIt) {
  const GlobalSet set = line("eth1", kUnset, kUnset);
  EXPECT_EQ(lines(state(set, TariffSet(), {true, "other"}), "steering "), "");
  EXPECT_EQ(lines(state(set, TariffSet(), {true, "KX-6-TR"}), "steering "),
            "steering " + steering_command("KX-6-TR", "eth1") + "\n");
}

}  // namespace
}  // namespace quenby
