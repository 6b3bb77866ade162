#include "ctl/readable.h"

#include <cerrno>
#include <cstring>
#include <unistd.h>

#include "ctl/status.h"

namespace quenby {

void expect_readable(const std::string& path) {
  if (access(path.c_str(), R_OK) != 0 && errno == EACCES)
    throw NotRun(path + ": " + std::strerror(EACCES));
}

}  // namespace quenby
