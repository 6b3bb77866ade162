#pragma once

#include <string>

#include "ctl/kept_files.h"
#include "ctl/kernel_access.h"
#include "ctl/wanted_note.h"

namespace quenby {

/// Where the files of a change are, and how its kernel is reached. The caller holds the lock of all
/// runs.
struct ChangePlaces {
  KeptFiles kept;
  WantedNote wanted;
  KernelAccess kernel;
};

/// Brings files and kernel to what they were before the recorded change, and ends it. The kernel is
/// left alone where shaping is not wanted any more, or not yet since the router was started. What
/// fails is tried again, three times in all: then `NotRun` says what remains. The files come first,
/// and a change whose files are back is over.
void take_back(const ChangePlaces& places);

}  // namespace quenby
