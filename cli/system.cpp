#include "cli/system.h"

#include <array>
#include <cstdio>
#include <cstdlib>
#include <iostream>
#include <string_view>

#include "cli/error.h"

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

std::optional<std::string> read_command(const std::string& command) {
  std::FILE* pipe = popen(command.c_str(), "re");
  if (pipe == nullptr) return std::nullopt;
  std::string output;
  std::array<char, 4096> buffer;
  while (const std::size_t got = std::fread(buffer.data(), 1, buffer.size(), pipe))
    output.append(buffer.data(), got);
  if (pclose(pipe) != 0) return std::nullopt;
  return output;
}

bool run_commands(const std::string& commands) {
  std::cout << std::flush;
  return std::system(commands.c_str()) == 0;
}

void run_or_exit(const std::string& commands) {
  if (!run_commands(commands)) fail_silently("a command failed: " + commands);
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
