#include "config/temporary_file.h"

#include <boost/filesystem.hpp>
#include <cerrno>
#include <cstdlib>
#include <fcntl.h>
#include <unistd.h>

namespace quenby {
namespace {

namespace fs = boost::filesystem;

// Four random digits give 65,536 names; this many taken ones in a row mean something is wrong.
constexpr int kAttempts = 1000;
constexpr mode_t kOwnerOnly = 0600;

}  // namespace

TemporaryFile::~TemporaryFile() {
  boost::system::error_code ignored;
  fs::remove(path_, ignored);
}

TemporaryFile TemporaryFile::create(const std::string& pattern) {
  int error = EEXIST;
  for (int attempt = 0; error == EEXIST && attempt < kAttempts; ++attempt) {
    const std::string path = fs::unique_path(pattern).string();
    const int file =
        open(path.c_str(), O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC | O_WRONLY, kOwnerOnly);
    if (file >= 0) {
      close(file);
      return TemporaryFile(path);
    }
    error = errno;
  }
  throw fs::filesystem_error("cannot create temporary file", pattern,
                             boost::system::error_code(error, boost::system::system_category()));
}

void TemporaryFile::replace(const std::string& target) const {
  // A failing "sync" leaves nothing better to do than to go on.
  [[maybe_unused]] const int status = std::system("sync");
  fs::rename(path_, target);
}

}  // namespace quenby
