#pragma once

#include <string>

namespace quenby {

/// The name of a file that is removed again when the owner goes, unless it has taken the place of
/// another by then.
class TemporaryFile {
 public:
  /// Only names the file.
  explicit TemporaryFile(const std::string& path) : path_(path) {}
  ~TemporaryFile();
  TemporaryFile(const TemporaryFile&) = delete;
  TemporaryFile& operator=(const TemporaryFile&) = delete;

  /// Makes an empty file that nobody else has: `pattern` with each "%" replaced by a random
  /// hexadecimal digit. A name that something stands under already, a link included, is never
  /// followed; another one is tried. Throws `boost::filesystem::filesystem_error`.
  static TemporaryFile create(const std::string& pattern);

  /// Makes the file, empty and for its owner alone, in the place of one that an interrupted run
  /// left. False when that is not possible.
  bool make() const;

  const std::string& path() const { return path_; }

  /// Brings the file to the disk with the owner and mode of `target` and moves it there. `target`
  /// is never seen half-written. Throws `boost::filesystem::filesystem_error`.
  void replace(const std::string& target);

 private:
  std::string path_;
  bool ours_ = true;
};

}  // namespace quenby
