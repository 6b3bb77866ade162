#include "shaper/packet_steering.h"

#include <gtest/gtest.h>
#include <string>

namespace quenby {
namespace {

TEST(Steering, WritesEveryPortsMask) {
  const struct {
    const char* port;
    const char* command;
  } rows[] = {
      {"eth1", "echo 0F00 > /sys/class/net/eth1/queues/rx-0/rps_cpus"},
      {"eth2", "echo 1700 > /sys/class/net/eth2/queues/rx-0/rps_cpus"},
      {"eth3", "echo 2700 > /sys/class/net/eth3/queues/rx-0/rps_cpus"},
      {"eth4", "echo 4780 > /sys/class/net/eth4/queues/rx-0/rps_cpus"},
      {"eth5", "echo 8740 > /sys/class/net/eth5/queues/rx-0/rps_cpus"},
      {"eth6", "echo 0780 > /sys/class/net/eth6/queues/rx-0/rps_cpus"},
      {"eth7", "echo 0740 > /sys/class/net/eth7/queues/rx-0/rps_cpus"},
      {"eth8", "echo 0720 > /sys/class/net/eth8/queues/rx-0/rps_cpus"},
  };
  for (const auto& row : rows) EXPECT_EQ(steering_command("KX-6-TR", row.port), row.command);
}

const char* const kOtherPorts[] = {"eth0", "eth9", "eth10", "ETH1", "ppp0", "", "eth1 ", "eth1.7"};

TEST(Steering, LeavesOtherPortsAlone) {
  for (const char* port : kOtherPorts) {
    SCOPED_TRACE(port);
    EXPECT_EQ(steering_command("KX-6-TR", port), "");
  }
}

TEST(Steering, LeavesOtherBoardsAlone) {
  for (const char* board :
       {"", "KX-6", "KX-6-TR\n", " KX-6-TR", "kx-6-tr", "KX-6-TR2", "Infinity\n"}) {
    SCOPED_TRACE(board);
    EXPECT_EQ(steering_command(board, "eth1"), "");
  }
}

TEST(SteeringReset, ClearsEveryPortThatHasAMask) {
  for (int number = 1; number <= 8; ++number) {
    const std::string port = "eth" + std::to_string(number);
    EXPECT_EQ(steering_reset_command("Infinity\n", port),
              "echo 0000 > /sys/class/net/" + port + "/queues/rx-0/rps_cpus");
  }
}

TEST(SteeringReset, LeavesOtherPortsAlone) {
  for (const char* port : kOtherPorts) {
    SCOPED_TRACE(port);
    EXPECT_EQ(steering_reset_command("Infinity\n", port), "");
  }
}

TEST(SteeringReset, ActsOnNoBoardsName) {
  for (const char* board : {"", "KX-6-TR", "KX-6-TR\n", "Infinity", "infinity\n", "Infinity\n\n"}) {
    SCOPED_TRACE(board);
    EXPECT_EQ(steering_reset_command(board, "eth1"), "");
  }
}

}  // namespace
}  // namespace quenby
