#include "tests/golden/device_test.h"

// Asking for the counters of a device's classes, and the lines that come of the answer.
namespace golden {
namespace {

using quenby::TariffConfig;

// In the order of numbers: iron 4, gold 5.
TariffConfig stored() {
  TariffConfig config;
  EXPECT_TRUE(config.addTariff(tariff("iron", 4, kTenMbit, {"10.0.1.4"})));
  EXPECT_TRUE(config.addTariff(tariff("gold", 5, kTenMbit, {"10.0.1.5"})));
  return config;
}

std::string printed(const quenby::HtbIntf& device) {
  testing::internal::CaptureStdout();
  device.class_stat(stored());
  return testing::internal::GetCapturedStdout();
}

constexpr const char* kAsked = R"(RTM_GETTCLASS REQUEST|ACK|DUMP
  family 0 ifindex 3
  handle none
  parent none
  info 0
)";

TEST_F(DeviceTest, StatisticsAskForTheClassesOfTheDevice) {
  EXPECT_EQ(printed(eth()), "");
  EXPECT_EQ(kernel.requests(), kAsked);
}

TEST_F(DeviceTest, TheSixCountersStandInOrder) {
  ListedClass gold = listed_class(kWanIndex, 0x80000005, 0x80000001);
  gold.traffic = {845'000, 1200};
  gold.rate = {11, 12};
  gold.queue = {21, 22, 3, 24, 17};
  kernel.has_class(gold);
  // Packets, bytes, bytes/s, packets/s, drops and overlimits.
  EXPECT_EQ(printed(eth()), "upload gold,1200,845000,11,12,3,17\n");
}

TEST_F(DeviceTest, CountersAreUnsignedAndBytesHave64Bits) {
  ListedClass gold = listed_class(kWanIndex, 0x80000005, 0x80000001);
  gold.traffic = {0xffff'ffff'ffff'ffff, 0xffff'ffff};
  gold.rate = {0xffff'ffff, 0x8000'0000};
  gold.queue = {0, 0, 0xffff'ffff, 0, 0x8000'0000};
  kernel.has_class(gold);
  EXPECT_EQ(printed(eth()),
            "upload gold,4294967295,18446744073709551615,4294967295,2147483648,4294967295,"
            "2147483648\n");
}

TEST_F(DeviceTest, EveryChildOfTheRootClassIsPrintedInTheKernelsOrder) {
  for (const int ifindex : {kWanIndex, kIfbIndex}) {
    kernel.has_class(listed_class(ifindex, 0x80000005, 0x80000001));
    kernel.has_class(listed_class(ifindex, 0x80000002, 0x80000001));
    kernel.has_class(listed_class(ifindex, 0x80000001, 0xffffffff));
    kernel.has_class(listed_class(ifindex, 0x80000007, 0x80000001));
    kernel.has_class(listed_class(ifindex, 0x80000003, 0x80000001));
    // A flow of the leaf 8005:0, and a class below another one.
    kernel.has_class(listed_class(ifindex, 0x80050002, 0x80050000));
    kernel.has_class(listed_class(ifindex, 0x80000008, 0x80000005));
  }
  EXPECT_EQ(printed(eth()),
            "upload gold,0,0,0,0,0,0\nupload system,0,0,0,0,0,0\nupload 7,0,0,0,0,0,0\n"
            "upload defaultQoSIPQueue,0,0,0,0,0,0\n");
  EXPECT_EQ(printed(ifb()),
            "download gold,0,0,0,0,0,0\ndownload system,0,0,0,0,0,0\ndownload 7,0,0,0,0,0,0\n"
            "download defaultQoSIPQueue,0,0,0,0,0,0\n");
}

TEST_F(DeviceTest, TheImqDownloadPrintsBothDirectionsAndTheUploadNone) {
  kernel.has_class(listed_class(kImqIndex, 0x80000001, 0xffffffff));
  kernel.has_class(listed_class(kImqIndex, 0x80008001, 0xffffffff));
  kernel.has_class(listed_class(kImqIndex, 0x80000002, 0x80000001));
  kernel.has_class(listed_class(kImqIndex, 0x80008005, 0x80008001));
  kernel.has_class(listed_class(kImqIndex, 0x80000005, 0x80000001));
  kernel.has_class(listed_class(kImqIndex, 0x80008007, 0x80008001));
  EXPECT_EQ(printed(imq(false)), "");
  EXPECT_EQ(printed(imq(true)),
            "defaultQoSIPQueue,0,0,0,0,0,0\nupload gold,0,0,0,0,0,0\n"
            "download gold,0,0,0,0,0,0\nupload 7,0,0,0,0,0,0\n");
}

}  // namespace
}  // namespace golden
