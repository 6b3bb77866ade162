#include "ctl/wanted_note.h"

#include <fcntl.h>
#include <unistd.h>

#include "config/file_descriptor.h"
#include "config/file_error.h"

namespace quenby {
namespace {

constexpr mode_t kOwnerOnly = 0600;

}  // namespace

bool WantedNote::exists() const {
  if (access(path_.c_str(), F_OK) == 0) return true;
  if (errno != ENOENT) throw_file_error("cannot look for file", path_);
  return false;
}

void WantedNote::write(const std::string& text) const {
  const FileDescriptor file(
      open(path_.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_NOFOLLOW | O_CLOEXEC, kOwnerOnly));
  const std::string line = text + '\n';
  if (!file.is_open() ||
      ::write(file.get(), line.data(), line.size()) != static_cast<ssize_t>(line.size()))
    throw_file_error("cannot write file", path_);
}

void WantedNote::remove() const {
  if (unlink(path_.c_str()) != 0 && errno != ENOENT) throw_file_error("cannot remove file", path_);
}

}  // namespace quenby
