#pragma once

#include <string>

namespace quenby {

/// The name of a file that is removed again when the owner goes, if it is still there.
class TemporaryFile {
 public:
  /// Only names the file; whoever opens the path makes it.
  explicit TemporaryFile(const std::string& path) : path_(path) {}
  ~TemporaryFile();
  TemporaryFile(const TemporaryFile&) = delete;
  TemporaryFile& operator=(const TemporaryFile&) = delete;

  /// Makes an empty file that nobody else has: `pattern` with each "%" replaced by a random
  /// hexadecimal digit. A name that something stands under already, a link included, is never
  /// followed; another one is tried. Throws `boost::filesystem::filesystem_error`.
  static TemporaryFile create(const std::string& pattern);

  const std::string& path() const { return path_; }

  /// Brings everything written to the disk and then moves the file to `target`, which is never
  /// seen half-written. Throws `boost::filesystem::filesystem_error`.
  void replace(const std::string& target) const;

 private:
  std::string path_;
};

}  // namespace quenby
