#pragma once

#include <string>

namespace quenby {

/// The note that shaping is wanted. The launcher makes it for what builds or changes something and
/// removes it for what stops; the units restore nothing without it. It does not outlast a boot.
class WantedNote {
 public:
  explicit WantedNote(const std::string& path = "/run/quenby.on") : path_(path) {}

  // Each throws `boost::filesystem::filesystem_error` when it fails.

  bool exists() const;
  void write(const std::string& text) const;
  void remove() const;

 private:
  std::string path_;
};

}  // namespace quenby
