#include "config/temporary_file.h"

#include <boost/filesystem.hpp>
#include <fcntl.h>
#include <unistd.h>

#include "config/durable_file.h"
#include "config/file_descriptor.h"
#include "config/file_error.h"

namespace quenby {
namespace {

namespace fs = boost::filesystem;

// Four random digits give 65,536 names; this many taken ones in a row mean something is wrong.
constexpr int kAttempts = 1000;
constexpr mode_t kOwnerOnly = 0600;

// 0, or the system's error number.
int make_new(const std::string& path) {
  const FileDescriptor file(
      open(path.c_str(), O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC | O_WRONLY, kOwnerOnly));
  return file.is_open() ? 0 : errno;
}

}  // namespace

TemporaryFile::~TemporaryFile() {
  if (ours_) unlink(path_.c_str());
}

TemporaryFile TemporaryFile::create(const std::string& pattern) {
  int error = EEXIST;
  for (int attempt = 0; error == EEXIST && attempt < kAttempts; ++attempt) {
    const std::string path = fs::unique_path(pattern).string();
    error = make_new(path);
    if (error == 0) return TemporaryFile(path);
  }
  throw_file_error("cannot create temporary file", pattern, error);
}

bool TemporaryFile::make() const {
  unlink(path_.c_str());
  return make_new(path_) == 0;
}

void TemporaryFile::replace(const std::string& target) {
  finish_file(path_, target);
  fs::rename(path_, target);
  // From here on a file of this name is another run's.
  ours_ = false;
  if (!sync_folder_of(target)) throw_file_error("cannot sync folder", target);
}

}  // namespace quenby
