#pragma once

#include <functional>
#include <gtest/gtest.h>
#include <string>
#include <utility>

#include "shaper/htb_shaper.h"
#include "tests/golden/private_sbin.h"
#include "tests/golden/recording_kernel.h"

namespace golden {

/// A router with the WAN device and ifb_ingr, on which an operation runs as a whole, once.
struct Router {
  Router() {
    route.has_link("eth1", kWanIndex);
    route.has_link("ifb_ingr", kIfbIndex);
  }

  /// Everything that a change relies on, with class number `last` as the last one.
  void stands(std::uint32_t last) {
    route.has_ingress_qdisc(kWanIndex);
    route.has_redirection({kWanIndex, kIfbIndex});
    for (const int device : {kWanIndex, kIfbIndex}) {
      route.has_root_qdisc(device, kHtb);
      route.has_class({.ifindex = device, .handle = kHtb | last, .parent = kHtb | 1});
    }
  }

  /// What the operation did and returned: commands, and requests but for the looks at devices in
  /// one line each, those about addresses and connections as `text` has them.
  SbinRun run(const std::function<std::string(const std::string&, const std::string&)>& text,
              const std::function<std::string(quenby::HtbShaper&)>& operation) {
    const SbinRun done = run_with_private_sbin(0, [&] {
      quenby::CachePtr links = route.links();
      route.tell([](const auto& summary, const auto& /*request*/) {
        if (!summary.starts_with("RTM_GET")) note_command(summary);
      });
      netfilter.tell([&text](const auto& summary, const auto& request) {
        note_command(text(summary, request));
      });
      quenby::HtbShaper shaper(
          {std::move(route.socket()), std::move(netfilter.socket()), std::move(links)});
      return operation(shaper);
    });
    EXPECT_EQ(done.status, 0) << done.errors;
    return done;
  }

  RecordingKernel route;
  RecordingKernel netfilter{NETLINK_NETFILTER};
};

}  // namespace golden
