#pragma once

#include <optional>
#include <string>

#include "config/paths.h"
#include "ctl/change_record.h"

namespace quenby {

/// The stored files as they were before a change, with the change's record, in a folder beside them
/// that only its owner enters. What it says outlasts a crash at any moment. Putting the files back
/// needs no room on the disk: it renames. Everything throws
/// `boost::filesystem::filesystem_error` when it fails. The caller holds the lock of all runs.
class KeptFiles {
 public:
  explicit KeptFiles(const std::string& folder = kConfigDirectory)
      : stored_(folder), folder_(folder + "/tc_kept") {}

  /// The change that can be taken back. Throws `NotRun` for a damaged record.
  std::optional<ChangeRecord> record() const;

  /// Keeps both files, with owner and mode, and then the record, which it completes: the change may
  /// begin. Throws `NotRun` where a stored file is not a regular one. Of what fails nothing counts.
  void keep(ChangeRecord& record) const;

  /// Writes the record again: the change waits for its confirmation.
  void wait(const ChangeRecord& record) const;

  /// From now on the change can only be taken back.
  void begin_taking_back() const;
  /// Has the stored global file name the change's interface and nothing else, for as long as it is
  /// not put back. Throws `NotRun`.
  void name_new_wan(const ChangeRecord& record) const;
  /// Makes the stored files what they were; continues where an earlier call was interrupted.
  void put_back(const ChangeRecord& record) const;
  /// Ends the change, whichever files are stored: removes the record and then, if that is possible,
  /// the rest.
  void forget() const;

 private:
  std::string change_file() const { return folder_ + "/change"; }
  std::string taking_back_file() const { return folder_ + "/taking-back"; }
  void write(const ChangeRecord& record) const;
  bool keep_file(const std::string& name) const;
  void put_back_file(const std::string& name, bool existed) const;
  void remove_rest() const noexcept;

  std::string stored_;
  std::string folder_;
};

}  // namespace quenby
