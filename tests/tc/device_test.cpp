#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <memory>

#include "model/tariff_dir_settings.h"
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

TEST_F(Device, NumbersItsObjectsByMarkOnTheWanAndIfbDevices) {
  for (const bool ingress : {true, false}) {
    const auto device = made("eth1", ingress);
    EXPECT_EQ(device->cid(0x4005), 5U);
    EXPECT_EQ(device->root_cid(), 1U);
    EXPECT_EQ(device->def_cid(), 2U);
    EXPECT_EQ(device->base_ht_id(), 2U);
    EXPECT_EQ(device->base_ht_node(), 1U);
    EXPECT_EQ(device->qhandle(5), 0x80050000U);
    EXPECT_EQ(device->chandle(5), 0x80000005U);
    EXPECT_EQ(device->chandle(0x4005), 0x80000005U);
  }
}

TEST_F(Device, NumbersImqDownloadPlainly) {
  const auto device = made("", true);
  EXPECT_EQ(device->cid(0x4005), 0x4005U);
  EXPECT_EQ(device->root_cid(), 1U);
  EXPECT_EQ(device->def_cid(), 2U);
  EXPECT_EQ(device->base_ht_id(), 2U);
  EXPECT_EQ(device->base_ht_node(), 1U);
  EXPECT_EQ(device->qhandle(5), 0x80050000U);
  EXPECT_EQ(device->chandle(5), 0x80000005U);
}

TEST_F(Device, NumbersImqUploadApart) {
  const auto device = made("", false);
  EXPECT_EQ(device->cid(5), 0x8005U);
  EXPECT_EQ(device->root_cid(), 0x8001U);
  EXPECT_EQ(device->def_cid(), 2U);
  EXPECT_EQ(device->base_ht_id(), 19U);
  EXPECT_EQ(device->base_ht_node(), 2U);
  EXPECT_EQ(device->qhandle(5), 52'773U << 16);
  EXPECT_EQ(device->chandle(5), 0x80008005U);
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
}

TEST_F(Device, RefusesAnUnknownClassAction) {
  const auto device = made("eth1", false);
  std::int64_t burst = 0;
  EXPECT_EXIT(device->class_op(5, 1, 1000, 1000, burst, htb_action{0}), ExitedWithCode(1),
              Eq("Error: eth1: cls 5 wrong action unknown(0)\n"));
}

TEST_F(Device, StopsWhenASettingsDirectionIsNotItsOwn) {
  const TariffDirSettings up(false);
  const TariffDirSettings down(true);
  GlobalDirSettings root(false);
  const auto ifb = made("eth1", true);
  const auto eth = made("eth1", false);
  const auto imq = made("", true);
  const auto action = htb_action::create;
  EXPECT_DEATH(ifb->class_op(up, action), "kavo-tc-htb:.*`t\\.download\\(\\)' failed");
  EXPECT_DEATH(eth->class_op(down, action), "kavo-tc-htb:.*`!t\\.download\\(\\)' failed");
  EXPECT_DEATH(imq->class_op(up, action), "kavo-tc-htb:.*`t\\.download\\(\\) == ingress\\(\\)'");
  EXPECT_DEATH(ifb->def_class_op(up, action), "kavo-tc-htb:.*`def\\.download\\(\\)' failed");
  EXPECT_DEATH(eth->def_qdisc_op(down, action), "kavo-tc-htb:.*`!def\\.download\\(\\)' failed");
  EXPECT_DEATH(imq->def_qdisc_op(up, action),
               "kavo-tc-htb:.*`def\\.download\\(\\) == ingress\\(\\)'");
  EXPECT_DEATH(ifb->create_qdisc(up), "kavo-tc-htb:.*`tariff\\.download\\(\\) == ingress\\(\\)'");
  EXPECT_DEATH(eth->delete_qdisc(down), "kavo-tc-htb:.*`tariff\\.download\\(\\) == ingress\\(\\)'");
  EXPECT_DEATH(ifb->create_root_leaf(root),
               "kavo-tc-htb:.*`root\\.download\\(\\) == ingress\\(\\)'");
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

TEST_F(Device, BlocksUploadOnTheWanDevice) {
  know("eth1");
  GlobalSet set;
  set.global.wan = "eth1";
  set.global.upload.speed = 0;
  std::string list = "first";
  made("eth1", false)->fill_fw_rules(set, list);
  EXPECT_EQ(list,
            "first;sudo iptables -t filter -I OSTREA_FW_OUT_HOOK 1 -j KAVO_OPT_QOS_HOOK;"
            "sudo iptables -t filter -A KAVO_OPT_QOS_HOOK -o eth1 -j DROP");
}

TEST_F(Device, MarksUploadOfNoTariffAsClass3) {
  know("eth1");
  GlobalSet set;
  set.global.wan = "eth1";
  std::string list;
  made("eth1", false)->fill_fw_rules(set, list);
  EXPECT_NE(list.find(" -j MARK --set-xmark 0x80000003/0x80003fff;"), std::string::npos) << list;
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
  EXPECT_EQ(HtbIngrImqIntf(true, sock, links).fill_fw_rules(set, list),
            "sudo iptables -t mangle -A KAVO_QOS_FW_IN_HOOK -i eth9 -j IMQ --todev 0");
  list.clear();
  EXPECT_EQ(
      HtbImqIntf(false, sock, links).fill_fw_rules(set, list),
      "sudo iptables -t mangle -A KAVO_QOS_FW_OUT_HOOK -m addrtype --src-type=LOCAL -j RETURN;"
      "sudo iptables -t mangle -A KAVO_QOS_FW_OUT_HOOK -j IMQ --todev 0;"
      "sudo iptables -t raw -R QOS_CONNTRACK 1 -j RETURN");
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
