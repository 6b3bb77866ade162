#include <sys/stat.h>

#include <cerrno>
#include <fcntl.h>

#include "config/durable_file.h"
#include "config/file_descriptor.h"

namespace quenby {
namespace {

// Not waiting for the other end keeps a pipe at the path from holding the run up.
constexpr int kFlags = O_RDWR | O_APPEND | O_CLOEXEC | O_NOCTTY | O_NONBLOCK;

int open_to_append(const std::string& path, bool& made) {
  const int file = open(path.c_str(), kFlags);
  made = file < 0 && errno == ENOENT;
  return made ? open(path.c_str(), kFlags | O_CREAT, kNewFileMode) : file;
}

// Whether what is appended would join the last line. False with `known` false when that cannot be
// found out.
bool ends_inside_line(int file, off_t length, bool& known) {
  char last = '\n';
  known = length == 0 || pread(file, &last, 1, length - 1) == 1;
  return last != '\n';
}

// One write, so that a run that is killed leaves all of the text or nothing in all but the rarest
// of cases.
bool append(int file, off_t length, const std::string& text) {
  bool known = false;
  const bool broken_line = ends_inside_line(file, length, known);
  const std::string all = broken_line ? "\n" + text : text;
  return known && write(file, all.data(), all.size()) == static_cast<ssize_t>(all.size()) &&
         fsync(file) == 0;
}

// What cannot be taken back stays; nothing better is left to do.
void take_back(const std::string& path, int file, off_t length, bool made) {
  [[maybe_unused]] bool done = ftruncate(file, length) == 0 && fsync(file) == 0;
  if (made) done = unlink(path.c_str()) == 0 && sync_folder_of(path);
}

}  // namespace

bool append_text(const std::string& path, const std::string& text) {
  bool made = false;
  const FileDescriptor file(open_to_append(path, made));
  struct stat before {};
  if (!file.is_open() || fstat(file.get(), &before) != 0 || !S_ISREG(before.st_mode)) return false;
  if (append(file.get(), before.st_size, text) && (!made || sync_folder_of(path))) return true;
  take_back(path, file.get(), before.st_size, made);
  return false;
}

}  // namespace quenby
