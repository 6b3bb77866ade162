#include "tc/nl_error.h"

#include <netlink/errno.h>

#include "cli/error.h"

namespace quenby {

void nl_fatal(const std::string& message, int code) {
  _error(message + "(" + nl_geterror(code) + ")");
}

void check_nl_result(const std::string& what, int code) {
  if (code < 0) nl_fatal("failed to " + what, code);
}

}  // namespace quenby
