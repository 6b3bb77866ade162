#include "ctl/terminal.h"

#include <cstdlib>
#include <string_view>
#include <unistd.h>

namespace quenby {

bool stdout_has_colours() {
  const char* const terminal = std::getenv("TERM");
  const char* const refused = std::getenv("NO_COLOR");
  return isatty(STDOUT_FILENO) == 1 && terminal != nullptr &&
         std::string_view(terminal) != "dumb" && (refused == nullptr || *refused == '\0');
}

}  // namespace quenby
