#include "cli/system.h"

#include <array>
#include <cstdio>
#include <cstdlib>
#include <iostream>
#include <string_view>

namespace quenby {

void _system(const std::string& command, std::string& out) {
  std::FILE* pipe = popen(command.c_str(), "r");
  if (pipe == nullptr) return;
  std::array<char, 1024> buffer{};
  // One byte less than the buffer, so that a NUL always ends the text.
  [[maybe_unused]] const std::size_t got = std::fread(buffer.data(), 1, buffer.size() - 1, pipe);
  pclose(pipe);
  out = buffer.data();
}

void run_or_exit(const std::string& commands) {
  std::cout << std::flush;
  if (std::system(commands.c_str()) != 0) std::exit(1);
}

std::string shell_word(const std::string& text) {
  constexpr std::string_view kOrdinary =
      "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789._-@:";
  if (text.find_first_not_of(kOrdinary) == std::string::npos) return text;
  std::string quoted = "'";
  for (const char c : text) {
    if (c == '\'') {
      quoted += "'\\''";
    } else {
      quoted += c;
    }
  }
  return quoted + "'";
}

void run_list(const std::string& commands) {
  if (!commands.empty()) run_or_exit(commands);
}

}  // namespace quenby
