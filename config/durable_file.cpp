#include "config/durable_file.h"

#include <sys/stat.h>

#include <array>
#include <fcntl.h>

#include "config/file_descriptor.h"
#include "config/file_error.h"

namespace quenby {
namespace {

constexpr mode_t kPermissions = 07777;

mode_t new_file_mode() {
  const mode_t mask = umask(0);
  umask(mask);
  return kNewFileMode & ~mask;
}

// The owner and mode that a file in the place of `target` is to have.
struct stat wanted_status(const std::string& target, struct stat status) {
  struct stat old {};
  if (stat(target.c_str(), &old) == 0) return old;
  if (errno != ENOENT) throw_file_error("cannot read status", target);
  status.st_mode = new_file_mode();
  return status;
}

// Asks for what differs alone: not every file system has owners and modes.
bool set_status(int file, const struct stat& status, const struct stat& wanted) {
  const bool owned = status.st_uid == wanted.st_uid && status.st_gid == wanted.st_gid;
  // First the owner, so that the mode opens the file to nobody else.
  if (!owned && fchown(file, wanted.st_uid, wanted.st_gid) != 0) return false;
  const mode_t mode = wanted.st_mode & kPermissions;
  return mode == (status.st_mode & kPermissions) || fchmod(file, mode) == 0;
}

bool write_all(int file, const char* data, ssize_t left) {
  while (left > 0) {
    const ssize_t written = write(file, data, static_cast<std::size_t>(left));
    if (written <= 0) return false;
    data += written;
    left -= written;
  }
  return true;
}

// A disk that is read-only answers so before it looks for the file.
bool missing(const std::string& path) {
  struct stat status {};
  return lstat(path.c_str(), &status) != 0 && (errno == ENOENT || errno == ENOTDIR);
}

}  // namespace

bool sync_folder_of(const std::string& path) {
  const std::string folder = (boost::filesystem::path(path).parent_path() / ".").string();
  const FileDescriptor file(open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  return file.is_open() && (fsync(file.get()) == 0 || errno == EINVAL);
}

void copy_contents(const std::string& from, const std::string& to) {
  const FileDescriptor in(open(from.c_str(), O_RDONLY | O_CLOEXEC));
  if (!in.is_open()) throw_file_error("cannot open file", from);
  const FileDescriptor out(open(to.c_str(), O_WRONLY | O_CLOEXEC));
  if (!out.is_open()) throw_file_error("cannot open file", to);
  std::array<char, 65536> buffer{};
  ssize_t got = 0;
  while ((got = read(in.get(), buffer.data(), buffer.size())) > 0) {
    if (!write_all(out.get(), buffer.data(), got)) throw_file_error("cannot write file", to);
  }
  if (got < 0) throw_file_error("cannot read file", from);
}

void finish_file(const std::string& path, const std::string& target) {
  const FileDescriptor file(open(path.c_str(), O_RDONLY | O_NOFOLLOW | O_CLOEXEC));
  struct stat status {};
  if (!file.is_open() || fstat(file.get(), &status) != 0)
    throw_file_error("cannot open file", path);
  if (!set_status(file.get(), status, wanted_status(target, status)))
    throw_file_error("cannot set owner and mode", path);
  if (fsync(file.get()) != 0) throw_file_error("cannot sync file", path);
}

bool remove_file(const std::string& path) {
  if (unlink(path.c_str()) != 0) {
    const int error = errno;
    if (missing(path)) return false;
    throw_file_error("cannot remove file", path, error);
  }
  if (!sync_folder_of(path)) throw_file_error("cannot sync folder", path);
  return true;
}

}  // namespace quenby
