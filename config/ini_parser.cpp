#include "config/ini_parser.h"

#include <cctype>
#include <cstring>

#include "config/tariff_ini_file.h"

namespace quenby {
namespace {

constexpr const char* kInPieces = " (the rest of a line longer than 4095 bytes)";

std::string lower(std::string text) {
  for (char& c : text) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
  return text;
}

const char* no_equals_sign(char first) {
  return first == '#' || first == ';' ? "comments are not allowed" : "no \"=\" in this line";
}

}  // namespace

std::optional<ParseError> IniParser::parse() {
  cfg_.beginParse();
  char* line = nullptr;
  while ((line = lines_.next()) != nullptr && parse_line(line)) continue;
  if (!lines_.at_end()) refuse(Position{}, lines_.failure());
  // The last section is completed here, and may be refused like any other.
  if (!cfg_.endSection()) refuse(section_at_, cfg_.refusal().reason);
  cfg_.endParse();
  return error_;
}

bool IniParser::parse_line(char* line) {
  return *line == '[' ? parse_header(line) : parse_key(line);
}

bool IniParser::parse_header(char* line) {
  const bool closed = std::strchr(line, ']') != nullptr;
  if (!TariffIniFile::parse_section(line + 1, section_))
    return refuse(line, closed ? "section header without a name" : "section header without \"]\"");
  const Position at = lines_.position(TariffIniFile::trim_left(line + 1));
  const bool accepted = cfg_.onSection(section_);
  if (!accepted) {
    const Refusal& refusal = cfg_.refusal();
    return refuse(refusal.of == Refusal::Of::kSection ? section_at_ : at, refusal.reason);
  }
  section_at_ = at;
  if (outline_ != nullptr) outline_->push_back({section_, at, {}});
  return true;
}

bool IniParser::parse_key(char* line) {
  char* const equals = std::strchr(line, '=');
  if (equals == nullptr) return refuse(line, no_equals_sign(*line));
  *equals = '\0';
  const std::string key = lower(TariffIniFile::trim_right(line, equals));
  char* const begin = TariffIniFile::trim_left(equals + 1);
  const std::string value = TariffIniFile::trim_right(begin);
  if (key.empty()) return refuse(equals, "no key before \"=\"");
  if (value.empty()) return refuse(equals + 1, "no value after \"=\"");
  if (!cfg_.onKey(section_, key, value)) {
    const Refusal& refusal = cfg_.refusal();
    return refuse(refusal.of == Refusal::Of::kKey ? line : begin, refusal.reason);
  }
  if (outline_ != nullptr)
    outline_->back().entries.push_back({key, value, lines_.position(line), lines_.position(begin)});
  return true;
}

bool IniParser::refuse(Position at, const std::string& reason) {
  if (!error_) error_ = ParseError{"", at, reason};
  return false;
}

bool IniParser::refuse(const char* at, const std::string& reason) {
  return refuse(lines_.position(at), lines_.in_long_line() ? reason + kInPieces : reason);
}

}  // namespace quenby
