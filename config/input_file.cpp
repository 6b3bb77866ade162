#include "config/input_file.h"

#include <sys/stat.h>

#include <cerrno>
#include <cstring>
#include <fcntl.h>

#include "config/file_descriptor.h"

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

}  // namespace

InputFile open_input(const std::string& path, bool command_line, std::string& failure) {
  failure = objection(path, command_line);
  if (!failure.empty()) return nullptr;
  FileDescriptor file(open(path.c_str(), open_flags(command_line)));
  struct stat status {};
  const bool known = file.is_open() && fstat(file.get(), &status) == 0;
  failure = known ? objection(status, command_line) : system_failure(kNotOpened);
  if (!failure.empty()) return nullptr;
  InputFile stream(fdopen(file.release(), "r"));
  if (stream == nullptr) failure = system_failure(kNotOpened);
  return stream;
}

InputFile open_text(const std::string& text) {
  return InputFile(fmemopen(const_cast<char*>(text.data()), text.size(), "r"));
}

std::string read_failure() { return system_failure("cannot be read: "); }

}  // namespace quenby
