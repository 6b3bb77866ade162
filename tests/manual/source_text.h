#pragma once

#include <regex>
#include <sstream>
#include <string>
#include <vector>

#include "tests/support/files.h"

namespace quenby::test {

/// The lines of a file of the source tree.
inline std::vector<std::string> source_lines(const std::string& name) {
  std::istringstream text(read_file(std::string(QUENBY_SOURCE_DIR) + "/" + name));
  std::vector<std::string> lines;
  for (std::string line; std::getline(text, line);) lines.push_back(line);
  return lines;
}

/// What stands after the line `heading` of a manual page, up to the next line that begins with one
/// of `ends`.
inline std::vector<std::string> part_of_page(const std::string& page, const std::string& heading,
                                             const std::vector<std::string>& ends) {
  const std::vector<std::string> lines = source_lines(page);
  const auto begin = std::find(lines.begin(), lines.end(), heading);
  EXPECT_NE(begin, lines.end()) << heading;
  if (begin == lines.end()) return {};
  const auto ends_part = [&ends](const std::string& line) {
    return std::any_of(ends.begin(), ends.end(),
                       [&line](const std::string& end) { return line.rfind(end, 0) == 0; });
  };
  return {begin + 1, std::find_if(begin + 1, lines.end(), ends_part)};
}

/// The lines that match `pattern` as a whole, each as its groups.
inline std::vector<std::vector<std::string>> matches(const std::vector<std::string>& lines,
                                                     const std::string& pattern) {
  const std::regex expression(pattern);
  std::vector<std::vector<std::string>> found;
  for (const std::string& line : lines) {
    std::smatch match;
    if (std::regex_match(line, match, expression))
      found.emplace_back(match.begin() + 1, match.end());
  }
  return found;
}

}  // namespace quenby::test
