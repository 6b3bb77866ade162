#include "ctl/program.h"

#include <sys/prctl.h>
#include <sys/wait.h>

#include <array>
#include <cerrno>
#include <chrono>
#include <climits>
#include <csignal>
#include <cstring>
#include <fcntl.h>
#include <iostream>
#include <optional>
#include <thread>
#include <unistd.h>

#include "config/file_error.h"
#include "ctl/status.h"

namespace quenby {
namespace {

constexpr int kCannotStart = 127;

[[noreturn]] void become(const std::string& path, std::vector<std::string> arguments, int lock) {
  for (const int key : {SIGINT, SIGQUIT, SIGHUP, SIGPIPE}) std::signal(key, SIG_IGN);
  sigset_t none;
  sigemptyset(&none);
  sigprocmask(SIG_SETMASK, &none, nullptr);
  std::vector<char*> words;
  std::string name = "quenby";
  words.push_back(name.data());
  for (std::string& argument : arguments) words.push_back(argument.data());
  words.push_back(nullptr);
  // Standard output is this program's own, and may be JSON.
  if (dup2(STDERR_FILENO, STDOUT_FILENO) >= 0 && fcntl(lock, F_SETFD, 0) == 0)
    execv(path.c_str(), words.data());
  _exit(kCannotStart);
}

constexpr std::chrono::seconds kPatience(5);
constexpr std::chrono::milliseconds kLookAgain(10);

// The next child that has ended, with its status; 0 where `options` do not let it wait, -1 where
// there is none any more, which is all that ends the wait.
pid_t next_ended(int& status, int options) {
  pid_t ended = 0;
  do {
    ended = waitpid(-1, &status, options);
  } while (ended < 0 && errno != ECHILD);
  return ended;
}

// A program that has ended by itself has waited for all that it needs. What goes on for longer is a
// daemon that some script has started.
void wait_a_while() {
  const auto end = std::chrono::steady_clock::now() + kPatience;
  for (int status = 0;;) {
    const pid_t ended = next_ended(status, WNOHANG);
    if (ended < 0) return;
    if (ended > 0) continue;
    if (std::chrono::steady_clock::now() >= end) break;
    std::this_thread::sleep_for(kLookAgain);
  }
  std::cerr << "quenbyctl: quenby has left processes behind, which go on\n";
}

// What the program leaves behind when it is killed goes on with its work, and is waited for as long
// as that takes.
std::optional<int> wait_for_all(pid_t program) {
  std::optional<int> result;
  int status = 0;
  for (pid_t ended = next_ended(status, 0); ended > 0; ended = next_ended(status, 0)) {
    if (ended != program) continue;
    result = status;
    if (WIFSIGNALED(status)) continue;
    wait_a_while();
    break;
  }
  return result;
}

}  // namespace

std::string own_path() {
  std::array<char, PATH_MAX> path{};
  const ssize_t length = readlink("/proc/self/exe", path.data(), path.size());
  if (length <= 0) throw NotRun(std::string("cannot read /proc/self/exe: ") + std::strerror(errno));
  return {path.data(), static_cast<std::size_t>(length)};
}

std::string program_path() {
  const std::string own = own_path();
  const std::string folder = own.substr(0, own.rfind('/'));
  for (const char* const place : {"/../libexec/quenby/quenby", "/quenby"}) {
    if (access((folder + place).c_str(), X_OK) == 0) return folder + place;
  }
  throw NotRun("quenby is not installed");
}

void run_program(const std::vector<std::string>& arguments, int lock) {
  const std::string path = program_path();
  if (prctl(PR_SET_CHILD_SUBREAPER, 1L, 0L, 0L, 0L) != 0)
    throw NotRun(std::string("cannot wait for quenby: ") + std::strerror(errno));
  std::signal(SIGCHLD, SIG_DFL);
  const pid_t child = fork();
  if (child < 0) throw NotRun(std::string("cannot start quenby: ") + std::strerror(errno));
  if (child == 0) become(path, arguments, lock);
  const std::optional<int> ended = wait_for_all(child);
  if (!ended) throw NotRun("cannot tell how quenby has ended");
  const int status = *ended;
  if (WIFSIGNALED(status))
    throw NotRun("quenby was ended by signal " + std::to_string(WTERMSIG(status)));
  if (WEXITSTATUS(status) == kCannotStart) throw NotRun("cannot start " + path);
  if (WEXITSTATUS(status) != 0)
    throw NotRun("quenby has failed with status " + std::to_string(WEXITSTATUS(status)));
}

}  // namespace quenby
