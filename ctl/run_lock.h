#pragma once

#include <string>

#include "config/file_descriptor.h"

namespace quenby {

/// The lock of all runs of the program, which the launcher takes too. Held until this object and
/// every process that was given its descriptor are gone.
class RunLock {
 public:
  static constexpr unsigned kUsualWait = 300;
  static constexpr unsigned kNoLimit = 0;

  /// Waits for the runs before this one, so many seconds at the most, and says on standard error
  /// whom it waits for. Throws `NotRun` when it does not get the lock.
  explicit RunLock(unsigned longest_wait = kUsualWait);

  int descriptor() const { return file_.get(); }

 private:
  FileDescriptor file_;
};

/// The process that holds a lock of the whole file which is open as `descriptor`, with its command
/// line, such as "process 1234 (quenby --load)". "another run" where that cannot be told.
std::string lock_holder(int descriptor);

}  // namespace quenby
