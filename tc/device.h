#pragma once

#include <netlink/route/link.h>
#include <netlink/route/tc.h>

#include <string>

struct nl_sock;

namespace quenby {

/// A network device as a request sees it. Borrows link and socket, for one operation. Every refusal
/// of a request on it ends the process; earlier requests stay in effect.
struct Device {
  /// What messages call it.
  std::string name;
  nl_sock* sock = nullptr;
  /// Null while it does not exist, or where only its index is known.
  rtnl_link* link = nullptr;
  /// 0 while it does not exist.
  int ifindex = 0;

  bool exists() const { return ifindex != 0; }

  /// Ends the process with "Error: ", the name, " failed to ", `what` and libnl's text for `code`.
  [[noreturn]] void nl_error(const std::string& what, int code) const;
  /// The same, when `code` is negative.
  void chk_nl_error(const std::string& what, int code) const;
  /// The same for a deletion, where what is gone already is no failure.
  void chk_deleted(const std::string& what, int code) const;

  /// Names this device, and unless null the kind, in a request's object.
  void attach(rtnl_tc* object, const char* kind) const;
};

}  // namespace quenby
