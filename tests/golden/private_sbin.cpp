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

void put_stand_in(const std::string& name, int status) {
  const std::string place = "/sbin/" + name;
  write_file(place, "#!/bin/sh\necho \"" + place + " $*\" >>\"$GOLDEN_NOTES\"\nexit " +
                        std::to_string(status) + "\n");
  fs::permissions(place, fs::perms{0755});
}

// Covers /sbin with an empty file system that holds the stand-ins, and /run, where notes go.
bool mount_stand_ins(int tc_status) {
  if (!enter_namespace() || mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0 ||
      mount("tmpfs", "/sbin", "tmpfs", 0, nullptr) != 0 ||
      mount("tmpfs", "/run", "tmpfs", 0, nullptr) != 0)
    return false;
  put_stand_in("tc", tc_status);
  put_stand_in("sudo", 0);
  setenv("PATH", ("/sbin:" + std::string(getenv("PATH"))).c_str(), 1);
  return true;
}

[[noreturn]] void child(const fs::path& folder, int tc_status,
                        const std::function<std::string()>& code) {
  setenv("GOLDEN_NOTES", (folder / "commands").c_str(), 1);
  if (!mount_stand_ins(tc_status)) _exit(kImpossible);
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

void note_command(const std::string& line) {
  std::ofstream(getenv("GOLDEN_NOTES"), std::ios::app) << line << '\n';
}

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
  if (status == kImpossible) throw std::runtime_error("no mount namespace for stand-ins in /sbin");
  return run;
}

}  // namespace golden
