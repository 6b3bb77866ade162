#include "ctl/run_lock.h"

#include <sys/file.h>

#include <cerrno>
#include <csignal>
#include <cstring>
#include <fcntl.h>
#include <iostream>

#include "ctl/status.h"

namespace quenby {
namespace {

constexpr const char* kPath = "/run/quenby.lock";
constexpr mode_t kOwnerOnly = 0600;

[[noreturn]] void cannot(const std::string& what) {
  throw NotRun("cannot " + what + " " + kPath + ": " + std::strerror(errno));
}

// An alarm ends the wait with EINTR, unlike a signal that a handler restarts.
bool locked_within(int file, unsigned seconds) {
  struct sigaction ours {};
  struct sigaction former {};
  ours.sa_handler = [](int) {};
  sigaction(SIGALRM, &ours, &former);
  alarm(seconds);
  const bool locked = flock(file, LOCK_EX) == 0;
  const int error = errno;
  alarm(0);
  sigaction(SIGALRM, &former, nullptr);
  errno = error;
  return locked;
}

}  // namespace

RunLock::RunLock(unsigned longest_wait)
    : file_(open(kPath, O_RDWR | O_CREAT | O_NOFOLLOW | O_CLOEXEC, kOwnerOnly)) {
  if (!file_.is_open()) cannot("open");
  if (flock(descriptor(), LOCK_EX | LOCK_NB) == 0) return;
  if (errno != EWOULDBLOCK) cannot("lock");
  std::cerr << "quenbyctl: waiting for " << lock_holder(descriptor()) << std::endl;
  if (locked_within(descriptor(), longest_wait)) return;
  if (errno != EINTR) cannot("lock");
  throw NotRun(lock_holder(descriptor()) + " has held " + kPath + " for " +
               std::to_string(longest_wait) + " s");
}

}  // namespace quenby
