#include "config/line_reader.h"

#include <sys/stat.h>

#include <cerrno>
#include <cstring>
#include <fcntl.h>

#include "config/file_descriptor.h"
#include "config/tariff_ini_file.h"

namespace quenby {
namespace {

constexpr const char* kNotOpened = "cannot be opened: ";

// What speaks against reading from it; nothing for most.
std::string objection(const struct stat& status, bool command_line) {
  if (S_ISREG(status.st_mode) || (command_line && S_ISFIFO(status.st_mode))) return "";
  return S_ISDIR(status.st_mode) ? "is a directory" : "is not a regular file";
}

std::string system_failure(const char* what) { return std::string(what) + std::strerror(errno); }

// Looked at before it is opened, as opening a device may set something off.
std::string objection(const std::string& path, bool command_line) {
  struct stat status {};
  if (stat(path.c_str(), &status) != 0) return system_failure(kNotOpened);
  return objection(status, command_line);
}

// A pipe opened without waiting would read as an empty file.
int open_flags(bool command_line) {
  return O_RDONLY | O_CLOEXEC | O_NOCTTY | (command_line ? 0 : O_NONBLOCK);
}

std::FILE* open_to_read(const std::string& path, bool command_line, std::string& failure) {
  failure = objection(path, command_line);
  if (!failure.empty()) return nullptr;
  FileDescriptor file(open(path.c_str(), open_flags(command_line)));
  struct stat status {};
  const bool known = file.is_open() && fstat(file.get(), &status) == 0;
  failure = known ? objection(status, command_line) : system_failure(kNotOpened);
  if (!failure.empty()) return nullptr;
  std::FILE* const stream = fdopen(file.release(), "r");
  if (stream == nullptr) failure = system_failure(kNotOpened);
  return stream;
}

}  // namespace

LineReader::LineReader(const std::string& path, bool command_line)
    : file_(open_to_read(path, command_line, failure_)) {}

char* LineReader::next() {
  while (read_piece()) {
    char* const text = TariffIniFile::trim_left(line_.data());
    if (*text != '\0') return text;
  }
  return nullptr;
}

Position LineReader::position(const char* text) const {
  return {number_, before_ + static_cast<std::size_t>(text - line_.data()) + 1};
}

void LineReader::begin_piece() {
  before_ = line_ended_ ? 0 : before_ + length_;
  if (line_ended_) ++number_;
  length_ = 0;
}

bool LineReader::read_piece() {
  begin_piece();
  int c = 0;
  while (length_ + 1 < line_.size() && c != '\n' && (c = getc_unlocked(file_.get())) != EOF)
    line_[length_++] = static_cast<char>(c);
  line_[length_] = '\0';
  line_ended_ = c == '\n';
  if (std::ferror(file_.get()) != 0) failure_ = system_failure("cannot be read: ");
  return length_ != 0 && at_end();
}

}  // namespace quenby
