#include <linux/rtnetlink.h>

#include <cerrno>
#include <functional>

#include "shaper/session.h"
#include "tc/class_counters.h"
#include "tests/golden/device_test.h"

// What the kernel refuses, and the message with which that ends the run.
namespace golden {
namespace {

using quenby::htb_action;
using quenby::kQdiscFqCodel;
using quenby::kQdiscSfq;
using testing::Eq;
using testing::ExitedWithCode;

class RefusalTest : public DeviceTest {
 protected:
  // The operation ends the run with this one line when its requests of this type are answered so.
  void expect_the_end(int type, const std::vector<int>& errors,
                      const std::function<void()>& operation, const std::string& message) {
    const auto run = [&] {
      for (const int error : errors) kernel.refuse(type, error);
      operation();
    };
    EXPECT_EXIT(run(), ExitedWithCode(1), Eq("Error: " + message + "\n"));
  }

  const quenby::GlobalSettings both = line(kTenMbit, kTenMbit);
};

TEST_F(RefusalTest, OfLinks) {
  expect_the_end(
      RTM_GETLINK, {EPERM}, [&] { quenby::open_link_cache(kernel.socket()); },
      "Cannot allocate rtnl_link_cache(Operation not permitted)");
  expect_the_end(
      RTM_DELLINK, {EBUSY}, [&] { ifb().link_del(); },
      "ifb_ingr failed to delete interface(Object busy)");
  kernel.has_no_links();
  expect_the_end(
      RTM_NEWLINK, {EOPNOTSUPP}, [&] { ifb().link_add(); },
      "ifb_ingr failed to add interface(Operation not supported)");
  kernel.forget_new_links();
  expect_the_end(
      RTM_NEWLINK, {}, [&] { imq(false).link_add(); }, "Cannot allocate link imq0");
}

TEST_F(RefusalTest, OfQdiscs) {
  const auto add_sfq = [&] { eth().create_qdisc(direction(false, 5, kTenMbit, kQdiscSfq)); };
  expect_the_end(
      RTM_GETQDISC, {EPERM}, [&] { eth().root_qdisc_del(); },
      "Cannot allocate rtnl_qdisc_cache(Operation not permitted)");
  expect_the_end(
      RTM_NEWQDISC, {EINVAL}, [&] { eth().root_qdisc_add(true); },
      "eth1 failed to add qdisc(Invalid input data or parameter)");
  // An ingress or root qdisc of another kind is somebody else's: none is added again.
  expect_the_end(
      RTM_NEWQDISC, {EINVAL}, [&] { eth().ingress_op(both, htb_action::create); },
      "eth1 failed to add ingress qdisc(Invalid input data or parameter)");
  expect_the_end(
      RTM_NEWQDISC, {EINVAL}, [&] { eth().global_fq_codel_op(both, htb_action::create); },
      "eth1 failed to add fq_codel qdisc(Invalid input data or parameter)");
  expect_the_end(
      RTM_NEWQDISC, {ENOENT},
      [&] { eth().create_qdisc(direction(false, 5, kTenMbit, kQdiscFqCodel)); },
      "eth1 failed to add fq_codel qdisc(Object not found)");
  expect_the_end(
      RTM_DELQDISC, {EPERM},
      [&] { eth().delete_qdisc(direction(false, 5, kTenMbit, kQdiscFqCodel)); },
      "eth1 failed to delete fq_codel qdisc(Operation not permitted)");
  // Nothing that stands in the way is deleted for these: the message is of the one request.
  expect_the_end(RTM_NEWQDISC, {EEXIST}, add_sfq, "eth1 failed to add sfq qdisc(Object exists)");
  expect_the_end(RTM_NEWQDISC, {EPERM}, add_sfq,
                 "eth1 failed to add sfq qdisc(Operation not permitted)");
  expect_the_end(RTM_NEWQDISC, {ENOMEM}, add_sfq, "eth1 failed to add sfq qdisc(Out of memory)");
}

TEST_F(RefusalTest, OfClasses) {
  expect_the_end(
      RTM_DELTCLASS, {EBUSY},
      [&] { ifb().class_op(direction(true, 5, kTenMbit), htb_action::remove); },
      "ifb_ingr failed to delete 5 cls(Object busy)");
  // By its mapped number.
  expect_the_end(
      RTM_NEWTCLASS, {ENOENT},
      [&] { imq(false).class_op(direction(false, 5, kTenMbit), htb_action::create); },
      "imq0 failed to add 32773 cls(Object not found)");
  expect_the_end(
      RTM_NEWTCLASS, {EINVAL},
      [&] { imq(false).update_root_leaf(line_direction(false, kTenMbit)); },
      "imq0 failed to add 32769 cls(Invalid input data or parameter)");
  // An update is reported as an addition.
  expect_the_end(
      RTM_NEWTCLASS, {EINVAL},
      [&] { eth().class_op(direction(false, 5, kTenMbit), htb_action::update); },
      "eth1 failed to add 5 cls(Invalid input data or parameter)");
  // A root class that is missing is no success here, unlike one that is to be deleted.
  expect_the_end(
      RTM_NEWTCLASS, {ENOENT}, [&] { eth().update_root_leaf(line_direction(false, kTenMbit)); },
      "eth1 failed to add 1 cls(Object not found)");
  expect_the_end(
      RTM_NEWTCLASS, {EBUSY},
      [&] { ifb().update_root_leaf_burst(line_direction(true, kTenMbit), 375'000); },
      "ifb_ingr failed to add 1 cls(Object busy)");
}

TEST_F(RefusalTest, OfClassifiers) {
  quenby::MarkPath ip6_path;
  ip6_path.ipv6 = ip6_path.classifier = true;
  const auto added = tariffs({tariff("zed", 6, kTenMbit, {"10.0.3.7"})});
  // The program that stands in for the fw filter is refused too.
  expect_the_end(
      RTM_NEWTFILTER, {EINVAL, ENOENT}, [&] { eth().add_fw_filter(1); },
      "eth1 failed to add filter cls(Object not found)");
  expect_the_end(
      RTM_NEWTFILTER, {EPERM}, [&] { eth().add_fw_filter(1); },
      "eth1 failed to add filter cls(Operation not permitted)");
  expect_the_end(
      RTM_NEWTFILTER, {EPERM}, [&] { eth().remake_ip6_classifiers(ip6_path); },
      "eth1 failed to add filter cls(Operation not permitted)");
  expect_the_end(
      RTM_DELTFILTER, {EPERM}, [&] { ifb().del_filter("eth1", 0xffff, 1, nullptr); },
      "ifb_ingr failed to del filter cls(Operation not permitted)");
  expect_the_end(
      RTM_NEWTFILTER, {EINVAL},
      [&] {
        imq(true).add_ht({5, 256}, 1, false);
      },
      "imq0 failed to add ht cls(Invalid input data or parameter)");
  // One that exists is tolerated, no other refusal.
  expect_the_end(
      RTM_NEWTFILTER, {ENOENT},
      [&] {
        imq(true).add_ht({5, 256}, 1, true);
      },
      "imq0 failed to add ht cls(Object not found)");
  expect_the_end(
      RTM_NEWTFILTER, {ENOENT}, [&] { imq(true).update_leaves(both, {}, added, true); },
      "imq0 failed to add ht cls(Object not found)");
}

// Handles of the table, of the link and of the address.
TEST_F(RefusalTest, OfAddressesUnlessTheBucketIsZeroAndTheAnswerThatItIsInvalid) {
  const auto add = [&](const char* address) {
    imq(true).create_leaves(both, tariffs({tariff("a", 5, kTenMbit, {address})}));
  };
  const auto in_bucket_0 = [&] { add("10.0.16.7"); };
  constexpr const char* kInvalid = "imq0 failed to add filter cls(Invalid input data or parameter)";
  // The base table and the link to it pass.
  expect_the_end(RTM_NEWTFILTER, {0, 0, 0, EINVAL, EINVAL}, in_bucket_0, kInvalid);
  expect_the_end(
      RTM_NEWTFILTER, {0, 0, 0, 0, EINVAL}, [&] { add("10.0.1.7"); }, kInvalid);
  expect_the_end(
      RTM_NEWTFILTER, {0, 0, 0, 0, ENOENT}, [&] { add("10.0.16.0"); },
      "imq0 failed to add filter cls(Object not found)");
}

// One step of a change from a tariff's leaf to another is refused.
TEST_F(RefusalTest, OfAStepOfAChange) {
  const auto gold = [](std::int64_t speed) {
    return tariffs({tariff("gold", 5, speed, {"10.0.17.5"}, kQdiscSfq)});
  };
  const auto change = [&] { eth().update_leaves(both, gold(1000), gold(2000), true); };
  // Its filter and what leads there are listed.
  for (const std::uint32_t handle : {0x01300000U, 0x01301800U, 0x01500000U})
    kernel.has_filter({kImqIndex, handle});
  kernel.has_filter({kImqIndex, 0x01505800, 0x80008005});
  const auto imq_change = [&] { imq(false).update_leaves(both, gold(1000), gold(2000), true); };
  expect_the_end(RTM_DELQDISC, {EBUSY}, change, "eth1 failed to delete sfq qdisc(Object busy)");
  expect_the_end(RTM_DELTCLASS, {EBUSY}, change, "eth1 failed to delete 5 cls(Object busy)");
  // Unlike a leaf, a class is not gone when the kernel finds the request invalid.
  expect_the_end(RTM_DELTCLASS, {EINVAL}, change,
                 "eth1 failed to delete 5 cls(Invalid input data or parameter)");
  expect_the_end(RTM_NEWTCLASS, {ENOENT}, change, "eth1 failed to add 5 cls(Object not found)");
  // The second time too, once what may stand there was deleted.
  expect_the_end(RTM_NEWQDISC, {EINVAL, EINVAL}, change,
                 "eth1 failed to add sfq qdisc(Invalid input data or parameter)");
  expect_the_end(RTM_DELQDISC, {EBUSY}, imq_change, "imq0 failed to delete sfq qdisc(Object busy)");
  expect_the_end(RTM_GETTFILTER, {EPERM}, imq_change,
                 "Cannot allocate rtnl_cls_cache(Operation not permitted)");
  expect_the_end(RTM_DELTFILTER, {EPERM}, imq_change,
                 "imq0 failed to del filter cls(Operation not permitted)");
  expect_the_end(RTM_DELTCLASS, {EBUSY}, imq_change,
                 "imq0 failed to delete 32773 cls(Object busy)");
  expect_the_end(RTM_NEWTCLASS, {ENOENT}, imq_change,
                 "imq0 failed to add 32773 cls(Object not found)");
  expect_the_end(RTM_NEWTFILTER, {ENOENT}, imq_change,
                 "imq0 failed to add filter cls(Object not found)");
  expect_the_end(RTM_NEWQDISC, {ENOENT}, imq_change,
                 "imq0 failed to add sfq qdisc(Object not found)");
}

TEST_F(RefusalTest, OfATeardown) {
  kernel.has_redirection({kWanIndex, kIfbIndex});
  const auto teardown = [&] { ifb().teardown(quenby::GlobalSet()); };
  expect_the_end(RTM_DELQDISC, {EPERM}, teardown,
                 "ifb_ingr failed to delete htb qdisc(Operation not permitted)");
  expect_the_end(RTM_GETTFILTER, {EPERM}, teardown,
                 "Cannot allocate rtnl_cls_cache(Operation not permitted)");
}

TEST_F(RefusalTest, OfCounters) {
  const quenby::Device wan{"eth1", kernel.socket().get(), nullptr, kWanIndex};
  expect_the_end(
      RTM_GETTCLASS, {EPERM}, [&] { ifb().class_stat({}); },
      "Cannot allocate rtnl_class_cache(Operation not permitted)");
  expect_the_end(
      RTM_GETTCLASS, {EPERM}, [&] { quenby::class_counters(wan); },
      "eth1 failed to list classes(Operation not permitted)");
  expect_the_end(
      RTM_GETQDISC, {ENOBUFS}, [&] { quenby::leaf_drops(kernel.socket().get()); },
      "failed to list qdiscs(Out of memory)");
  const quenby::HtbEthIntf& device = eth();
  kernel.fail_to_send();
  expect_the_end(
      RTM_GETTCLASS, {}, [&] { device.class_stat({}); },
      "Cannot allocate rtnl_class_cache(Out of memory)");
}

}  // namespace
}  // namespace golden
