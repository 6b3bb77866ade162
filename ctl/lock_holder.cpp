#include <sys/stat.h>

#include <algorithm>
#include <boost/filesystem.hpp>
#include <fstream>
#include <iterator>

#include "ctl/run_lock.h"

namespace quenby {
namespace {

namespace fs = boost::filesystem;

bool is_same_file(const struct stat& a, const struct stat& b) {
  return a.st_dev == b.st_dev && a.st_ino == b.st_ino;
}

// What the kernel tells of an open file has a line for each lock that was taken through it. The
// process that took it may have ended, as flock(1) does; those who were given the file hold it.
bool holds_lock(const fs::path& information) {
  std::ifstream file(information.string());
  for (std::string line; std::getline(file, line);) {
    if (line.rfind("lock:", 0) == 0 && line.find("FLOCK") != std::string::npos) return true;
  }
  return false;
}

// False for what may not be looked at, or is gone.
bool has_locked(const fs::path& process, const struct stat& wanted) {
  boost::system::error_code error;
  for (fs::directory_iterator at(process / "fd", error), end; !error && at != end;
       at.increment(error)) {
    struct stat status {};
    if (stat(at->path().c_str(), &status) == 0 && is_same_file(status, wanted) &&
        holds_lock(process / "fdinfo" / at->path().filename())) {
      return true;
    }
  }
  return false;
}

// In one line, without characters that a terminal would obey.
std::string command_line(const fs::path& process) {
  std::ifstream file((process / "cmdline").string());
  std::string text{std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
  while (!text.empty() && text.back() == '\0') text.pop_back();
  std::replace_if(
      text.begin(), text.end(), [](unsigned char c) { return c < ' ' || c == 0x7f; }, ' ');
  return text;
}

}  // namespace

std::string lock_holder(int descriptor) {
  struct stat wanted {};
  if (fstat(descriptor, &wanted) != 0) return "another run";
  boost::system::error_code error;
  for (fs::directory_iterator at("/proc", error), end; !error && at != end; at.increment(error)) {
    const std::string name = at->path().filename().string();
    if (name.find_first_not_of("0123456789") == std::string::npos &&
        has_locked(at->path(), wanted)) {
      return "process " + name + " (" + command_line(at->path()) + ")";
    }
  }
  return "another run";
}

}  // namespace quenby
