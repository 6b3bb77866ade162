#pragma once

#include <string>

#include "config/file_descriptor.h"

namespace quenby {

/// A process of its own session that takes a change back when the process that makes it ends
/// without having ended the change. It has neither a terminal nor anything else of that process,
/// and reports to the system's log.
class Guard {
 public:
  /// Starts it for the change with this id. `waits`: it also takes a change back that has waited in
  /// vain for its confirmation. Throws `NotRun`.
  Guard(const std::string& id, bool waits);

 private:
  /// The end of this process closes it.
  FileDescriptor alive_;
};

/// Waits until the change with this id has been ended, or takes it back when nobody makes it any
/// more, or, with `waits`, it has not been confirmed in time. An empty id is any change. Throws
/// `NotRun` when the taking back fails. True when it was taken back.
bool watch(const std::string& id, bool waits);

}  // namespace quenby
