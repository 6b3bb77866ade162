#include "ctl/guard.h"

#include <sys/wait.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <csignal>
#include <cstring>
#include <ctime>
#include <fcntl.h>
#include <optional>
#include <syslog.h>
#include <unistd.h>

#include "ctl/run_lock.h"
#include "ctl/status.h"
#include "ctl/take_back.h"

namespace quenby {
namespace {

// In milliseconds: a confirmation ends the wait.
constexpr std::int64_t kLookAgain = 1000;

[[noreturn]] void cannot_start() {
  throw NotRun(std::string("cannot start the process that would take it back: ") +
               std::strerror(errno));
}

void sleep_until(std::int64_t ms) {
  timespec until{};
  until.tv_sec = ms / 1000;
  until.tv_nsec = ms % 1000 * 1'000'000;
  while (clock_nanosleep(CLOCK_BOOTTIME, TIMER_ABSTIME, &until, nullptr) == EINTR) {
  }
}

// A pipe that nothing is written to ends when nobody can any more.
void wait_for_end(int pipe) {
  char byte = 0;
  while (::read(pipe, &byte, 1) != 0) {
  }
}

void report(int level, const std::string& text) {
  openlog("quenbyctl", LOG_PID, LOG_DAEMON);
  syslog(level, "%s", text.c_str());
}

void guard(const std::string& id, bool waits) {
  try {
    // That of the process that makes the change.
    wait_for_end(STDIN_FILENO);
    if (watch(id, waits)) report(LOG_NOTICE, "a change was taken back");
  } catch (const std::exception& e) {
    report(LOG_ERR, e.what());
  }
}

// Away from the terminal, its signals, the caller's folder and files.
[[noreturn]] void become_guard(int end, const std::string& id, bool waits) {
  setsid();
  if (const pid_t child = fork(); child != 0) _exit(child < 0 ? 1 : 0);
  for (const int key : {SIGHUP, SIGPIPE}) std::signal(key, SIG_IGN);
  sigset_t none;
  sigemptyset(&none);
  sigprocmask(SIG_SETMASK, &none, nullptr);
  const int nothing = open("/dev/null", O_RDWR);
  dup2(end, STDIN_FILENO);
  dup2(nothing, STDOUT_FILENO);
  dup2(nothing, STDERR_FILENO);
  closefrom(STDERR_FILENO + 1);
  if (chdir("/") == 0) guard(id, waits);
  _exit(0);
}

// The first child ends at once, so that the guard is nobody's.
bool ended_well(pid_t child) {
  int status = 0;
  pid_t ended = 0;
  do {
    ended = waitpid(child, &status, 0);
  } while (ended < 0 && errno == EINTR);
  return ended == child && status == 0;
}

struct Pipe {
  FileDescriptor reading;
  FileDescriptor writing;

  static Pipe open() {
    std::array<int, 2> ends{};
    if (pipe2(ends.data(), O_CLOEXEC) != 0) cannot_start();
    return {FileDescriptor(ends[0]), FileDescriptor(ends[1])};
  }
};

// The descriptor that the end of this process closes. By then the guard has closed all others that
// it was given, the lock's among them.
int start_guard(const std::string& id, bool waits) {
  Pipe alive = Pipe::open();
  Pipe closing = Pipe::open();
  std::signal(SIGCHLD, SIG_DFL);
  const pid_t child = fork();
  if (child == 0) become_guard(alive.reading.get(), id, waits);
  if (child < 0 || !ended_well(child)) cannot_start();
  ::close(closing.writing.release());
  wait_for_end(closing.reading.get());
  return alive.writing.release();
}

struct Due {
  enum class When { never, later, now } when;
  std::int64_t at = 0;
};

// A change that is not waiting is one that nobody makes any more, as the lock is to be had.
Due due(const KeptFiles& kept, const std::string& id) {
  const std::optional<ChangeRecord> record = kept.record();
  if (!record || (!id.empty() && record->id != id)) return {Due::When::never};
  const bool waits = record->state == ChangeState::waiting && is_of_this_boot(*record) &&
                     now_ms() < record->deadline;
  return waits ? Due{Due::When::later, record->deadline} : Due{Due::When::now};
}

// Looks again under the lock.
Due take_back_if_due(const std::string& id) {
  const RunLock lock(RunLock::kNoLimit);
  const ChangePlaces places{KeptFiles(), WantedNote(), kernel_access(lock.descriptor())};
  const Due found = due(places.kept, id);
  if (found.when == Due::When::now) take_back(places);
  return found;
}

}  // namespace

Guard::Guard(const std::string& id, bool waits) : alive_(start_guard(id, waits)) {}

bool watch(const std::string& id, bool waits) {
  for (;;) {
    Due found = due(KeptFiles(), id);
    if (found.when == Due::When::now) {
      found = take_back_if_due(id);
      if (found.when == Due::When::now) return true;
    }
    if (found.when == Due::When::never || !waits) return false;
    sleep_until(std::min(found.at, now_ms() + kLookAgain));
  }
}

}  // namespace quenby
