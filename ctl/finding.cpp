#include "ctl/finding.h"

#include <algorithm>
#include <nlohmann/json.hpp>
#include <tuple>

#include "ctl/json.h"

namespace quenby {
namespace {

constexpr const char* kBold = "\033[1m";
constexpr const char* kRed = "\033[1;31m";
constexpr const char* kMagenta = "\033[1;35m";
constexpr const char* kGreen = "\033[1;32m";
constexpr const char* kPlain = "\033[m";

// How much of a long line is shown on either side of the place.
constexpr std::size_t kBefore = 80;
constexpr std::size_t kAfter = 40;

const char* severity_name(Severity severity) {
  return severity == Severity::error ? "error" : "warning";
}

std::string painted(const std::string& text, const char* colour, bool colours) {
  return colours ? colour + text + kPlain : text;
}

std::string place(const Finding& finding) {
  if (finding.at.line == 0) return finding.file + ":";
  return finding.file + ":" + std::to_string(finding.at.line) + ":" +
         std::to_string(finding.at.column) + ":";
}

bool is_control(char c) {
  const auto code = static_cast<unsigned char>(c);
  return code < 0x20 || code == 0x7f;
}

// The bytes of a UTF-8 character after its first.
bool continues_character(char c) { return (static_cast<unsigned char>(c) & 0xc0U) == 0x80U; }

// What stands above a caret takes as much room as this.
std::string blanks_for(const std::string& text) {
  std::string blanks;
  for (const char c : text) {
    if (!continues_character(c)) blanks += c == '\t' ? '\t' : ' ';
  }
  return blanks;
}

std::string shown(std::string text) {
  for (char& c : text) {
    if (is_control(c) && c != '\t') c = '?';
  }
  return text;
}

std::string excerpt(const std::string& line, std::size_t column, bool colours) {
  const std::size_t at = std::min(column - 1, line.size());
  const std::size_t begin = at > kBefore ? at - kBefore : 0;
  const std::size_t end = std::min(line.find_last_not_of("\r\n") + 1, at + kAfter);
  const std::string before = shown(line.substr(begin, at - begin));
  const std::string after = end > at ? shown(line.substr(at, end - at)) : "";
  return before + after + '\n' + blanks_for(before) + painted("^", kGreen, colours) + '\n';
}

nlohmann::json json_of(const Finding& finding) {
  nlohmann::json object = {{"file", finding.file}, {"line", nullptr},
                           {"column", nullptr},    {"severity", severity_name(finding.severity)},
                           {"code", finding.code}, {"text", finding.text}};
  if (finding.at.line != 0) {
    object["line"] = finding.at.line;
    object["column"] = finding.at.column;
  }
  return object;
}

}  // namespace

void sort_by_place(Findings& findings) {
  const auto key = [](const Finding& f) { return std::tie(f.file, f.at.line, f.at.column); };
  std::stable_sort(findings.begin(), findings.end(),
                   [key](const Finding& a, const Finding& b) { return key(a) < key(b); });
}

std::string to_text(const Finding& finding, const IniText* source, bool colours) {
  const char* const colour = finding.severity == Severity::error ? kRed : kMagenta;
  std::string text = painted(shown(place(finding)), kBold, colours) + ' ' +
                     painted(severity_name(finding.severity) + std::string(":"), colour, colours) +
                     ' ' + shown(finding.text) + '\n';
  if (source != nullptr && finding.at.line != 0)
    text += excerpt(source->line(finding.at.line), finding.at.column, colours);
  return text;
}

std::string json_text(const Findings& findings) {
  nlohmann::json list = nlohmann::json::array();
  for (const Finding& finding : findings) list.push_back(json_of(finding));
  return printed({{"findings", list}});
}

}  // namespace quenby
