#include "tc/device.h"

#include <netlink/errno.h>

#include "cli/error.h"
#include "tc/nl_error.h"

namespace quenby {

void Device::nl_error(const std::string& what, int code) const {
  nl_fatal(name + " failed to " + what, code);
}

void Device::chk_nl_error(const std::string& what, int code) const {
  if (code < 0) nl_error(what, code);
}

void Device::chk_deleted(const std::string& what, int code) const {
  if (code != -NLE_OBJ_NOTFOUND) chk_nl_error(what, code);
}

void Device::attach(rtnl_tc* object, const char* kind) const {
  if (link != nullptr) {
    rtnl_tc_set_link(object, link);
  } else if (exists()) {
    rtnl_tc_set_ifindex(object, ifindex);
  }
  if (kind != nullptr && rtnl_tc_set_kind(object, kind) < 0)
    _error(std::string("Unable to set kind to ") + kind);
}

}  // namespace quenby
