#include "tests/golden/device_test.h"

#include "model/rate_resolution.h"
#include "tc/htb_class.h"

namespace golden {

DeviceTest::DeviceTest() {
  quenby::set_psched_hz(1'000'000);
  kernel.has_link("eth1", kWanIndex);
  kernel.has_link("ifb_ingr", kIfbIndex);
  kernel.has_link("imq0", kImqIndex);
}

BareRouterTest::BareRouterTest() { kernel.has_no_links(); }

quenby::CachePtr& DeviceTest::fresh_cache() {
  caches_.push_back(kernel.links());
  return caches_.back();
}

quenby::HtbEthIntf& DeviceTest::eth() {
  auto device = std::make_unique<quenby::HtbEthIntf>("eth1", kernel.socket(), fresh_cache());
  quenby::HtbEthIntf& made = *device;
  devices_.push_back(std::move(device));
  return made;
}

quenby::HtbIfbIntf& DeviceTest::ifb() {
  auto device = std::make_unique<quenby::HtbIfbIntf>(kernel.socket(), fresh_cache());
  quenby::HtbIfbIntf& made = *device;
  devices_.push_back(std::move(device));
  return made;
}

quenby::HtbImqIntf& DeviceTest::imq(bool ingress) {
  auto device = std::make_unique<quenby::HtbImqIntf>(ingress, kernel.socket(), fresh_cache());
  quenby::HtbImqIntf& made = *device;
  devices_.push_back(std::move(device));
  return made;
}

quenby::DeviceTree tree(const quenby::Side& side, const quenby::GlobalSet& set) {
  return device_tree(side, quenby::resolve(set, {}, kGigabit));
}

quenby::GlobalSettings line(std::int64_t download, std::int64_t upload) {
  quenby::GlobalSettings settings;
  settings.wan = "eth1";
  settings.download.speed = download;
  settings.upload.speed = upload;
  return settings;
}

quenby::GlobalDirSettings line_direction(bool download, std::int64_t speed) {
  quenby::GlobalDirSettings settings(download);
  settings.speed = speed;
  return settings;
}

quenby::DefaultDirSettings default_direction(bool download, std::int64_t speed,
                                             std::int64_t guarantee) {
  quenby::DefaultDirSettings settings(download);
  settings.speed = speed;
  settings.ceiling = guarantee;
  return settings;
}

quenby::TariffDirSettings direction(bool download, int id, std::int64_t speed, int qdisc) {
  quenby::TariffDirSettings settings(download);
  settings.id = id;
  settings.speed = speed;
  settings.qdisc = qdisc;
  return settings;
}

quenby::TariffSettings tariff(const std::string& name, int id, std::int64_t speed,
                              const std::vector<std::string>& addresses, int qdisc) {
  quenby::TariffSettings settings;
  settings.name = name;
  settings.id = id;
  settings.qdisc = qdisc;
  settings.download = direction(true, id, speed, qdisc);
  settings.upload = direction(false, id, speed, qdisc);
  for (const std::string& address : addresses) EXPECT_TRUE(settings.addCIDR(address));
  return settings;
}

quenby::TariffSet tariffs(const std::vector<quenby::TariffSettings>& all) {
  quenby::TariffSet set;
  for (const quenby::TariffSettings& one : all) EXPECT_TRUE(set.addTariff(one));
  return set;
}

}  // namespace golden
