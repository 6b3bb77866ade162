#include "ctl/silence.h"

#include <fcntl.h>

namespace quenby {
namespace {

constexpr int kFirstOther = STDERR_FILENO + 1;

}  // namespace

SilentStderr::SilentStderr() : kept_(fcntl(STDERR_FILENO, F_DUPFD_CLOEXEC, kFirstOther)) {
  const FileDescriptor nowhere(open("/dev/null", O_WRONLY | O_CLOEXEC));
  if (kept_.is_open() && nowhere.is_open()) dup2(nowhere.get(), STDERR_FILENO);
}

SilentStderr::~SilentStderr() {
  if (kept_.is_open()) dup2(kept_.get(), STDERR_FILENO);
}

}  // namespace quenby
