#pragma once

#include <linux/netlink.h>

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

/// Qdiscs and classes as messages describe them. A request and the kernel's list are read by the
/// same functions, so what is compared is what is sent.
namespace quenby {

/// One parameter: as messages have it, and as people know it. Bursts are sent as the time that they
/// take, so another rate alone makes another time of them. Two parameters differ when both do.
struct Property {
  const char* name = "";
  std::uint64_t value = 0;
  std::uint64_t shown = 0;
  const char* unit = "";
};

struct TcObject {
  std::string kind;
  std::uint32_t handle = 0;
  std::uint32_t parent = 0;
  int ifindex = 0;
  /// Those that a message has of the parameters that this program sends.
  std::vector<Property> properties;
};

/// The qdisc or the HTB class of a message; nothing for a message of another kind. The kernel lists
/// some leaf qdiscs' flows as classes too: they are no HTB classes.
std::optional<TcObject> read_qdisc(const nlmsghdr* message);
std::optional<TcObject> read_class(const nlmsghdr* message);

/// In which properties that both have the two differ, "rate 1000 bytes/s, not 2000 bytes/s"; empty
/// where they do not.
std::string differing(const TcObject& wanted, const TcObject& standing);

}  // namespace quenby
