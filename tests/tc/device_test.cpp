#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <memory>

#include "model/tariff_dir_settings.h"
#include "tc/firewall_rules.h"
#include "tc/htb_eth_intf.h"
#include "tc/htb_ifb_intf.h"
#include "tc/htb_imq_intf.h"
#include "tc/make_intf.h"

// Device objects without a kernel: there is no socket, so that a request would end the test.
namespace quenby {
namespace {

using testing::Eq;
using testing::ExitedWithCode;

class Device : public testing::Test {
 protected:
  // A link cache that knows one device.
  void know(const char* name) {
    nl_cache* cache = nullptr;
    ASSERT_EQ(nl_cache_alloc_name("route/link", &cache), 0);
    links.reset(cache);
    const LinkPtr link(rtnl_link_alloc(), rtnl_link_put);
    rtnl_link_set_name(link.get(), name);
    rtnl_link_set_ifindex(link.get(), 7);
    ASSERT_EQ(nl_cache_add(cache, reinterpret_cast<nl_object*>(link.get())), 0);
  }

  std::unique_ptr<HtbIntf> made(const std::string& wan, bool ingress) {
    GlobalSettings g;
    g.wan = wan;
    return make_intf(g, direction_of(ingress), sock, links);
  }

  SocketPtr sock{nullptr, close_nl_socket};
  CachePtr links{nullptr, nl_cache_free};
};

TEST_F(Device, IsTheWanOrIfbDeviceWithAWanName) {
  const auto egress = made("eth1", false);
  EXPECT_EQ(egress->name(), "eth1");
  EXPECT_FALSE(egress->ingress());
  EXPECT_STREQ(egress->kind(), "");
  const auto ingress = made("eth1", true);
  EXPECT_EQ(ingress->name(), "ifb_ingr");
  EXPECT_TRUE(ingress->ingress());
  EXPECT_STREQ(ingress->kind(), "ifb");
}

TEST_F(Device, IsTheImqDeviceWithoutAWanName) {
  for (const bool ingress : {true, false}) {
    const auto device = made("", ingress);
    EXPECT_EQ(device->name(), "imq0");
    EXPECT_EQ(device->ingress(), ingress);
    EXPECT_STREQ(device->kind(), "imq");
    EXPECT_EQ(dynamic_cast<HtbIngrImqIntf*>(device.get()), nullptr);
  }
}

TEST_F(Device, NumbersItsObjectsInItsOwnWay) {
  const struct {
    const char* wan;
    bool ingress;
    unsigned cid, root, table, node;
    std::uint32_t leaf, handle;
  } rows[] = {{"eth1", false, 5, 1, 2, 1, 0x80050000, 0x80000005},
              {"eth1", true, 5, 1, 2, 1, 0x80050000, 0x80000005},
              {"", true, 5, 1, 2, 1, 0x80050000, 0x80000005},
              {"", false, 0x8005, 0x8001, 19, 2, 52'773U << 16, 0x80008005}};
  for (const auto& row : rows) {
    SCOPED_TRACE(testing::Message() << row.wan << ' ' << row.ingress);
    const auto device = made(row.wan, row.ingress);
    EXPECT_EQ(device->cid(5), row.cid);
    EXPECT_EQ(device->root_cid(), row.root);
    EXPECT_EQ(device->def_cid(), 2U);
    EXPECT_EQ(device->base_ht_id(), row.table);
    EXPECT_EQ(device->base_ht_node(), row.node);
    EXPECT_EQ(device->qhandle(5), row.leaf);
    EXPECT_EQ(device->chandle(5), row.handle);
  }
  EXPECT_EQ(made("eth1", false)->cid(0x4005), 5U);
  EXPECT_EQ(made("", true)->cid(0x4005), 0x4005U);
}

TEST_F(Device, KnowsWhichLinksExist) {
  know("eth1");
  const auto device = made("eth1", true);
  EXPECT_TRUE(device->link_exists("eth1"));
  EXPECT_FALSE(device->link_exists("eth2"));
  EXPECT_FALSE(device->link_exists(""));
}

TEST_F(Device, MakesNoClassForASpeedNeverSet) {
  const auto device = made("eth1", true);
  GlobalDirSettings unset(true);
  EXPECT_EQ(device->create_root_leaf(unset), -1);
  device->update_root_leaf_burst(unset, 5000);
  device->def_class_op(unset, htb_action::create);
}

TEST_F(Device, RefusesToUpdateALeafInPlace) {
  const auto device = made("eth1", true);
  const TariffDirSettings t(true);
  EXPECT_EXIT(device->pfifo_op(t, htb_action::update), ExitedWithCode(1),
              Eq("Error: ifb_ingr: wrong pfifo action update\n"));
  EXPECT_EXIT(device->sfq_op(t, htb_action{7}), ExitedWithCode(1),
              Eq("Error: ifb_ingr: wrong sfq action unknown(7)\n"));
  EXPECT_EXIT(device->fq_codel_op(t, htb_action{0}), ExitedWithCode(1),
              Eq("Error: ifb_ingr: wrong fq_codel action unknown(0)\n"));
  EXPECT_EXIT(device->def_qdisc_op(t, htb_action::update), ExitedWithCode(1),
              Eq("Error: ifb_ingr: wrong fq_codel action update\n"));
}

TEST_F(Device, RefusesAnUnknownClassAction) {
  const auto device = made("eth1", false);
  std::int64_t burst = 0;
  EXPECT_EXIT(device->class_op(5, 1, 1000, 1000, burst, htb_action{0}), ExitedWithCode(1),
              Eq("Error: eth1: cls 5 wrong action unknown(0)\n"));
}

// The condition as the message shows it, where a settings record has the wrong direction.
std::string assertion(const std::string& condition) {
  return "kavo-tc-htb:.*`" + condition + "' failed";
}

TEST_F(Device, StopsWhenASettingsDirectionIsNotItsOwn) {
  const TariffDirSettings up(false);
  const TariffDirSettings down(true);
  const auto wan = std::make_unique<HtbEthIntf>("eth1", sock, links);
  const auto ifb = std::make_unique<HtbIfbIntf>(sock, links);
  const auto imq = made("", true);
  constexpr auto kCreate = htb_action::create;
  const std::string of_class = assertion("!t\\.download\\(\\)");
  const std::string of_default = assertion("!def\\.download\\(\\)");
  EXPECT_DEATH(wan->class_op(down, kCreate), of_class);
  EXPECT_DEATH(wan->def_class_op(down, kCreate), of_default);
  EXPECT_DEATH(wan->def_tar_class_op(down, kCreate), of_default);
  EXPECT_DEATH(wan->def_qdisc_op(down, kCreate), of_default);
  EXPECT_DEATH(wan->def_tar_qdisc_op(down, kCreate), of_default);
  EXPECT_DEATH(ifb->class_op(up, kCreate), assertion("t\\.download\\(\\)"));
  const std::string of_ifb = assertion("def\\.download\\(\\)");
  EXPECT_DEATH(ifb->def_class_op(up, kCreate), of_ifb);
  EXPECT_DEATH(ifb->def_tar_class_op(up, kCreate), of_ifb);
  EXPECT_DEATH(ifb->def_qdisc_op(up, kCreate), of_ifb);
  EXPECT_DEATH(ifb->def_tar_qdisc_op(up, kCreate), of_ifb);
  const std::string own = "\\.download\\(\\) == ingress\\(\\)";
  EXPECT_DEATH(imq->class_op(up, kCreate), assertion("t" + own));
  EXPECT_DEATH(imq->def_class_op(up, kCreate), assertion("def" + own));
  EXPECT_DEATH(imq->def_qdisc_op(up, kCreate), assertion("def" + own));
  EXPECT_DEATH(ifb->create_qdisc(up), assertion("tariff" + own));
  EXPECT_DEATH(wan->delete_qdisc(down), assertion("tariff" + own));
  EXPECT_DEATH(imq->tariff_qdisc_op(up, kCreate), assertion("tariff" + own));
  EXPECT_DEATH(ifb->create_root_leaf(up), assertion("root" + own));
  EXPECT_DEATH(imq->update_root_leaf(up), assertion("root" + own));
}

const char* const kAccept = "sudo iptables -t raw -R QOS_CONNTRACK 1 -j ACCEPT";
const char* const kReturn = "sudo iptables -t raw -R QOS_CONNTRACK 1 -j RETURN";

TEST_F(Device, WritesNoEgressRulesWithoutTheWanDevice) {
  GlobalSet set;
  set.global.wan = "eth1";
  set.global.upload.speed = 0;
  std::string list;
  EXPECT_EQ(made("eth1", false)->fill_fw_rules(set, list), "");
}

TEST_F(Device, AppendsTheEgressRulesOfItsRecords) {
  know("eth1");
  GlobalSet set;
  set.global.wan = "eth1";
  for (const std::int64_t speed : {0, 125}) {
    set.global.upload.speed = speed;
    std::string list = "first";
    made("eth1", false)->fill_fw_rules(set, list);
    EXPECT_EQ(list, "first;" + upload_rules({"eth1", speed, std::nullopt}, 0x80000003));
  }
}

TEST_F(Device, TracksDownloadsWhereTheWanDeviceExists) {
  GlobalSet set;
  set.global.wan = "eth1";
  std::string list;
  EXPECT_EQ(made("eth1", true)->fill_fw_rules(set, list), kReturn);
  know("eth1");
  list.clear();
  EXPECT_EQ(made("eth1", true)->fill_fw_rules(set, list), kAccept);
}

TEST_F(Device, WritesImqRulesInOneDirection) {
  GlobalSet set;
  set.global.wan = "eth9";
  std::string list;
  EXPECT_EQ(HtbImqIntf(true, sock, links).fill_fw_rules(set, list), "");
  EXPECT_EQ(HtbIngrImqIntf(false, sock, links).fill_fw_rules(set, list), "");
  EXPECT_EQ(HtbIngrImqIntf(true, sock, links).fill_fw_rules(set, list), imq_download_rules("eth9"));
  list.clear();
  EXPECT_EQ(HtbImqIntf(false, sock, links).fill_fw_rules(set, list), imq_upload_rules());
}

TEST_F(Device, WritesTheRemovalSetOncePerPair) {
  for (const char* wan : {"eth1", ""}) {
    std::string list = "first";
    made(wan, true)->fill_clean_fw_rules(list);
    EXPECT_EQ(list, "first");
    made(wan, false)->fill_clean_fw_rules(list);
    EXPECT_EQ(list.find("first;sudo iptables -t mangle -F KAVO_QOS_FW_OUT_HOOK;"), 0U) << list;
  }
}

}  // namespace
}  // namespace quenby
