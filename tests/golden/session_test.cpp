#include "shaper/session.h"

#include <linux/netlink.h>

#include <gtest/gtest.h>

#include "tests/golden/recording_kernel.h"

// Opening what every operation talks to the kernel over.
namespace golden {
namespace {

using testing::ExitedWithCode;

TEST(Session, OpensASocketOfTheRoutingFamily) {
  const quenby::SocketPtr sock = quenby::open_socket(NETLINK_ROUTE);
  ASSERT_NE(sock, nullptr);
  EXPECT_GE(nl_socket_get_fd(sock.get()), 0);
}

TEST(Session, AFamilyThatTheKernelDoesNotHaveEndsTheRun) {
  EXPECT_EXIT(quenby::open_socket(MAX_LINKS), ExitedWithCode(1),
              "^Error: failed to connect socket\\(Protocol mismatch\\)\n$");
}

TEST(Session, ListsTheLinks) {
  RecordingKernel kernel;
  kernel.has_link("eth1", kWanIndex);
  const quenby::CachePtr links = quenby::open_link_cache(kernel.socket());
  EXPECT_EQ(kernel.requests(), "RTM_GETLINK REQUEST|ACK|DUMP\n");
  EXPECT_EQ(rtnl_link_name2i(links.get(), "eth1"), kWanIndex);
  EXPECT_EQ(rtnl_link_name2i(links.get(), "eth2"), 0);
}

}  // namespace
}  // namespace golden
