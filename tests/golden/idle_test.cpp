#include <functional>

#include "tests/golden/device_test.h"

// Operations that have nothing to do: they send no request.
namespace golden {
namespace {

using quenby::GlobalSet;
using quenby::htb_action;
using quenby::kQdiscFqCodel;
using quenby::kQdiscPfifo;
using quenby::kQdiscSfq;

struct Row {
  const char* what;
  std::function<void()> operation;
};

void expect_no_request(RecordingKernel& kernel, const std::vector<Row>& rows) {
  for (const Row& row : rows) {
    SCOPED_TRACE(row.what);
    row.operation();
    EXPECT_EQ(kernel.requests(), "");
  }
}

const quenby::GlobalSettings kLine = line(kTenMbit, kTenMbit);
const auto kOne = tariffs({tariff("amy", 4, kTenMbit, {"10.0.1.4"}, kQdiscSfq)});
const auto kOther = tariffs({tariff("amy", 4, 1000, {"10.0.1.5"}, kQdiscSfq)});
const auto kSilent = tariffs({tariff("amy", 4, kTenMbit, {}, kQdiscSfq)});

TEST_F(BareRouterTest, AMissingDeviceIsNotAsked) {
  GlobalSet set;
  set.has_global = true;
  set.global = kLine;
  const auto up = line_direction(false, kTenMbit);
  const auto down = line_direction(true, kTenMbit);
  testing::internal::CaptureStdout();
  expect_no_request(
      kernel, {
                  {"set-up without the WAN device",
                   [&] { eth().setup(tree(quenby::mark_side(quenby::Direction::upload), set)); }},
                  {"no IFB device is made for an empty tree", [&] { ifb().setup({}); }},
                  {"teardown of the WAN device", [&] { eth().teardown(set); }},
                  {"teardown of the IFB device", [&] { ifb().teardown(set); }},
                  {"deletion of a device that was never found", [&] { ifb().link_del(); }},
                  {"root classes",
                   [&] {
                     eth().update_root_leaf(up);
                     ifb().update_root_leaf(down);
                     imq(true).update_root_leaf(down);
                   }},
                  {"deletion of leaves",
                   [&] {
                     for (const int kind : {kQdiscPfifo, kQdiscSfq, kQdiscFqCodel}) {
                       eth().delete_qdisc(direction(false, 5, kTenMbit, kind));
                       ifb().delete_qdisc(direction(true, 5, kTenMbit, kind));
                     }
                     ifb().def_qdisc_op(direction(true, 5, kTenMbit), htb_action::remove);
                     eth().ingress_op(kLine, htb_action::remove);
                   }},
                  {"changes of leaves",
                   [&] {
                     eth().update_leaves(kLine, kOne, kOther, true);
                     ifb().update_leaves(kLine, kOne, kOther, true);
                     imq(true).update_leaves(kLine, kOne, kOther, true);
                     imq(false).update_leaves(kLine, kOne, kOther, true);
                   }},
                  {"statistics",
                   [&] {
                     eth().class_stat({});
                     ifb().class_stat({});
                     imq(true).class_stat({});
                     imq(false).class_stat({});
                   }},
              });
  EXPECT_EQ(testing::internal::GetCapturedStdout(), "");
}

TEST_F(DeviceTest, WithoutSpeedOrActionNothingIsAsked) {
  const auto unset = line_direction(false, -2);
  expect_no_request(
      kernel,
      {
          {"a root class without speed",
           [&] {
             EXPECT_EQ(eth().create_root_leaf(unset), -1);
             eth().update_root_leaf(unset);
             eth().update_root_leaf_burst(unset, 375'000);
           }},
          {"a root burst never shrinks",
           [&] {
             eth().update_root_leaf_burst(line_direction(false, kTenMbit), 300'000);
             eth().update_root_leaf_burst(line_direction(false, kTenMbit), 1500);
           }},
          {"default classes without speed",
           [&] {
             for (const htb_action action : {htb_action::create, htb_action::update, kNoAction}) {
               eth().def_class_op(unset, action);
               eth().def_tar_class_op(default_direction(false, -2, 0), action);
               ifb().def_class_op(line_direction(true, -2), action);
               imq(true).def_class_op(default_direction(true, -2, 0), action);
             }
           }},
          {"default classes without action",
           [&] {
             eth().def_class_op(line_direction(false, kTenMbit), kNoAction);
             ifb().def_tar_class_op(default_direction(true, kTenMbit, 0), kNoAction);
           }},
          {"the IMQ upload has no default leaf",
           [&] {
             const auto def = default_direction(false, kTenMbit, kTenMbit);
             imq(false).def_qdisc_op(def, htb_action::create);
             imq(false).def_qdisc_op(def, htb_action::remove);
           }},
          {"leaves of a blocked direction",
           [&] {
             for (const std::int64_t speed : {-2, 0}) {
               eth().create_leaves(line(kTenMbit, speed), kOne);
               ifb().create_leaves(line(speed, kTenMbit), kOne);
             }
           }},
          {"changes of a direction of the IMQ device without speed",
           [&] {
             imq(true).update_leaves(line(-2, kTenMbit), kOne, kOther, true);
             imq(false).update_leaves(line(kTenMbit, -2), kOne, kOther, true);
           }},
      });
}

TEST_F(DeviceTest, WhereThereIsNothingToDoNothingIsAsked) {
  quenby::AddressTree addresses(quenby::HandleScheme::imq_download);
  const auto leaf = direction(true, 5, kTenMbit, kQdiscSfq);
  expect_no_request(
      kernel,
      {
          {"leaves of unknown kinds",
           [&] {
             for (const int kind : {0, 4, -1}) {
               eth().create_qdisc(direction(false, 5, kTenMbit, kind));
               eth().delete_qdisc(direction(false, 5, kTenMbit, kind));
               ifb().tariff_qdisc_op(direction(true, 5, kTenMbit, kind), htb_action::update);
             }
           }},
          {"a tariff without addresses",
           [&] {
             imq(true).create_ht_leaf(leaf, addresses, {}, false);
             imq(true).delete_ht_leaf(leaf, true, {});
             eth().delete_fw_leaf(direction(false, 5, kTenMbit, kQdiscSfq), true, {});
             eth().update_leaves(kLine, kSilent, kSilent, true);
           }},
          {"a leaf is deleted only on request",
           [&] {
             eth().delete_fw_leaf(direction(false, 5, kTenMbit, kQdiscSfq), false, {1});
             ifb().delete_fw_leaf(leaf, false, {});
           }},
          {"classifiers by mark of the IMQ device",
           [&] {
             imq(true).update_filter(kLine, kTenMbit, true, true);
             imq(false).update_filter(kLine, kTenMbit, true, true);
           }},
          {"classifiers of another device that is missing",
           [&] { ifb().del_filter("ppp0", 0xffff, 1, nullptr); }},
          {"classifiers without IPv6", [&] { eth().remake_ip6_classifiers(quenby::MarkPath()); }},
      });
}

}  // namespace
}  // namespace golden
