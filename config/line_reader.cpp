#include "config/line_reader.h"

#include <sys/stat.h>

#include <fcntl.h>

#include "config/file_descriptor.h"
#include "config/tariff_ini_file.h"

namespace quenby {
namespace {

bool acceptable(const struct stat& status, bool command_line) {
  return S_ISREG(status.st_mode) || (command_line && S_ISFIFO(status.st_mode));
}

// Looked at before it is opened, as opening a device may set something off.
bool acceptable(const std::string& path, bool command_line) {
  struct stat status {};
  return stat(path.c_str(), &status) == 0 && acceptable(status, command_line);
}

// A pipe opened without waiting would read as an empty file.
int open_flags(bool command_line) {
  return O_RDONLY | O_CLOEXEC | O_NOCTTY | (command_line ? 0 : O_NONBLOCK);
}

std::FILE* open_to_read(const std::string& path, bool command_line) {
  if (!acceptable(path, command_line)) return nullptr;
  FileDescriptor file(open(path.c_str(), open_flags(command_line)));
  struct stat status {};
  if (!file.is_open() || fstat(file.get(), &status) != 0 || !acceptable(status, command_line))
    return nullptr;
  return fdopen(file.release(), "r");
}

}  // namespace

LineReader::LineReader(const std::string& path, bool command_line)
    : file_(open_to_read(path, command_line)) {}

char* LineReader::next() {
  while (std::fgets(line_.data(), static_cast<int>(line_.size()), file_.get()) != nullptr) {
    char* const text = TariffIniFile::trim_left(line_.data());
    if (*text != '\0') return text;
  }
  return nullptr;
}

}  // namespace quenby
