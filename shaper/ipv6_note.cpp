#include "shaper/ipv6_note.h"

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <string>
#include <unistd.h>

#include "cli/error.h"

namespace quenby {

bool ipv6_is_noted() { return access(kIpv6Note, F_OK) == 0; }

void note_ipv6() {
  const int file = open(kIpv6Note, O_WRONLY | O_CREAT | O_NOFOLLOW | O_CLOEXEC, 0600);
  if (file < 0) _error("failed to note IPv6: " + std::string(std::strerror(errno)));
  close(file);
}

void forget_ipv6() { unlink(kIpv6Note); }

}  // namespace quenby
