#include "config/line_reader.h"

#include <cerrno>
#include <cstring>
#include <utility>

#include "config/tariff_ini_file.h"

namespace quenby {

LineReader::LineReader(const std::string& path, bool command_line)
    : file_(open_input(path, command_line, failure_)) {}

LineReader::LineReader(InputFile file) : file_(std::move(file)) {
  if (file_ == nullptr) failure_ = std::strerror(errno);
}

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
  if (std::ferror(file_.get()) != 0) failure_ = read_failure();
  return length_ != 0 && at_end();
}

}  // namespace quenby
