#pragma once

#include <cstdint>
#include <deque>
#include <gtest/gtest.h>
#include <memory>
#include <string>
#include <vector>

#include "model/global_set.h"
#include "model/tariff_set.h"
#include "tc/htb_eth_intf.h"
#include "tc/htb_ifb_intf.h"
#include "tc/htb_imq_intf.h"
#include "tests/golden/recording_kernel.h"

namespace golden {

/// 10 Mbit/s in bytes per second.
inline constexpr std::int64_t kTenMbit = 1'250'000;
/// A gigabit link in bytes per second.
inline constexpr std::int64_t kGigabit = 125'000'000;

/// A router with the WAN device "eth1", "ifb_ingr" and "imq0", unless a test wants fewer, and a
/// scheduler clock of a million ticks a second.
class DeviceTest : public testing::Test {
 protected:
  DeviceTest();

  /// Makes a device object from what the kernel has at this moment.
  quenby::HtbEthIntf& eth();
  quenby::HtbIfbIntf& ifb();
  quenby::HtbImqIntf& imq(bool ingress);

  RecordingKernel kernel;

 private:
  quenby::CachePtr& fresh_cache();

  std::deque<quenby::CachePtr> caches_;
  std::vector<std::unique_ptr<quenby::HtbIntf>> devices_;
};

/// The same router before any device was made on it.
class BareRouterTest : public DeviceTest {
 protected:
  BareRouterTest();
};

/// The tree of a direction without tariffs.
quenby::DeviceTree tree(const quenby::Side& side, const quenby::GlobalSet& set);

/// Settings of a line with these speeds in bytes per second.
quenby::GlobalSettings line(std::int64_t download, std::int64_t upload);
quenby::GlobalDirSettings line_direction(bool download, std::int64_t speed);
quenby::DefaultDirSettings default_direction(bool download, std::int64_t speed,
                                             std::int64_t guarantee);
/// One direction of a tariff.
quenby::TariffDirSettings direction(bool download, int id, std::int64_t speed, int qdisc = 0);
/// A tariff with the same speed both ways.
quenby::TariffSettings tariff(const std::string& name, int id, std::int64_t speed,
                              const std::vector<std::string>& addresses, int qdisc = 0);
quenby::TariffSet tariffs(const std::vector<quenby::TariffSettings>& all);

/// An action that is none.
inline constexpr auto kNoAction = static_cast<quenby::htb_action>(0);

}  // namespace golden
