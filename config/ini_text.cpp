#include "config/ini_text.h"

#include <array>
#include <cctype>
#include <sstream>
#include <utility>

#include "config/ini_parser.h"
#include "config/input_file.h"
#include "config/line_reader.h"
#include "config/tariff_ini_file.h"

namespace quenby {
namespace {

constexpr std::size_t kReadSize = 65536;

std::vector<std::string> lines_of(const std::string& text) {
  std::vector<std::string> lines;
  std::istringstream in(text);
  for (std::string line; std::getline(in, line);) lines.push_back(line);
  return lines;
}

bool is_header(const std::string& line) {
  for (const char c : line) {
    if (std::isspace(static_cast<unsigned char>(c)) == 0) return c == '[';
  }
  return false;
}

// The first header below line `from`, both counting from 0; the end when there is none.
std::size_t next_header(const std::vector<std::string>& lines, std::size_t from) {
  while (from < lines.size() && !is_header(lines[from])) ++from;
  return from;
}

}  // namespace

IniText::IniText(std::string path, std::string text)
    : path_(std::move(path)), text_(std::move(text)), lines_(lines_of(text_)) {}

std::string IniText::line(std::size_t number) const {
  return number > 0 && number <= lines_.size() ? lines_[number - 1] : std::string();
}

std::optional<ParseError> IniText::read_ini(ShaperConfigInterface& cfg, IniOutline* outline) const {
  LineReader lines(open_text(text_));
  if (!lines.is_open()) return ParseError{path_, {}, lines.failure()};
  std::optional<ParseError> error = IniParser(lines, cfg, outline).parse();
  if (error) error->file = path_;
  return error;
}

Position IniText::find_section(const std::string& name) const {
  LineReader lines(open_text(text_));
  return quenby::find_section(lines, name);
}

std::optional<IniText> IniText::without(Position at) const {
  if (at.line == 0 || at.line > lines_.size()) return std::nullopt;
  std::size_t first = at.line - 1;
  std::size_t end = at.line;
  if (is_header(lines_[first])) {
    end = next_header(lines_, end);
  } else if (next_header(lines_, 0) > first) {
    first = 0;
    end = next_header(lines_, end);
  }
  std::string rest;
  for (std::size_t i = 0; i < lines_.size(); ++i)
    rest += (i >= first && i < end ? std::string() : lines_[i]) + '\n';
  return IniText(path_, rest);
}

std::optional<ParseError> read_text(const std::string& path, bool command_line,
                                    std::optional<IniText>& text) {
  std::string failure;
  const InputFile file = open_input(path, command_line, failure);
  if (file == nullptr) return ParseError{path, {}, failure};
  std::string all;
  std::array<char, kReadSize> buffer{};
  while (const std::size_t got = std::fread(buffer.data(), 1, buffer.size(), file.get()))
    all.append(buffer.data(), got);
  if (std::ferror(file.get()) != 0) return ParseError{path, {}, read_failure()};
  text.emplace(path, std::move(all));
  return {};
}

}  // namespace quenby
