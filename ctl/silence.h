#pragma once

#include "config/file_descriptor.h"

namespace quenby {

/// While it lives standard error leads nowhere: what a command that is called says there would
/// disturb the live screen.
class SilentStderr {
 public:
  SilentStderr();
  ~SilentStderr();
  SilentStderr(const SilentStderr&) = delete;
  SilentStderr& operator=(const SilentStderr&) = delete;

 private:
  FileDescriptor kept_;
};

}  // namespace quenby
