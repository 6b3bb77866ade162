#include "tests/golden/private_sbin.h"

#include <sys/mount.h>
#include <sys/stat.h>
#include <sys/wait.h>

#include <cstdlib>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <sched.h>
#include <sstream>
#include <stdexcept>
#include <unistd.h>

namespace golden {
namespace {

namespace fs = std::filesystem;

// The child's status when it may not mount anything.
constexpr int kImpossible = 77;

std::string contents(const fs::path& file) {
  std::ostringstream text;
  text << std::ifstream(file).rdbuf();
  return text.str();
}

void write_file(const fs::path& file, const std::string& text) { std::ofstream(file) << text; }

bool enter_namespace() {
  const uid_t user = getuid();
  if (unshare(CLONE_NEWNS) == 0) return true;
  if (unshare(CLONE_NEWUSER | CLONE_NEWNS) != 0) return false;
  write_file("/proc/self/uid_map", "0 " + std::to_string(user) + " 1\n");
  return true;
}

// Covers /sbin with an empty file system that holds the stand-in.
bool mount_stand_in(const fs::path& notes, int tc_status) {
  if (!enter_namespace() || mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0 ||
      mount("tmpfs", "/sbin", "tmpfs", 0, nullptr) != 0)
    return false;
  write_file("/sbin/tc", "#!/bin/sh\necho \"$0 $*\" >>" + notes.string() + "\nexit " +
                             std::to_string(tc_status) + "\n");
  return chmod("/sbin/tc", 0755) == 0;
}

[[noreturn]] void child(const fs::path& folder, int tc_status,
                        const std::function<std::string()>& code) {
  if (!mount_stand_in(folder / "commands", tc_status)) _exit(kImpossible);
  const int errors = open((folder / "errors").c_str(), O_WRONLY | O_CREAT, 0600);
  dup2(errors, STDERR_FILENO);
  write_file(folder / "result", code());
  _exit(0);
}

fs::path new_folder() {
  std::string name = (fs::temp_directory_path() / "golden_sbin.XXXXXX").string();
  if (mkdtemp(name.data()) == nullptr) throw std::runtime_error("no temporary folder");
  return name;
}

}  // namespace

SbinRun run_with_private_sbin(int tc_status, const std::function<std::string()>& code) {
  const fs::path folder = new_folder();
  const pid_t pid = fork();
  if (pid == 0) child(folder, tc_status, code);
  int ended = 0;
  waitpid(pid, &ended, 0);
  const int status = WIFEXITED(ended) ? WEXITSTATUS(ended) : -1;
  SbinRun run{status, contents(folder / "result"), contents(folder / "commands"),
              contents(folder / "errors")};
  fs::remove_all(folder);
  if (status == kImpossible)
    throw std::runtime_error("no mount namespace for a stand-in of /sbin/tc");
  return run;
}

}  // namespace golden
