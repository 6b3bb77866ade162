#include "shaper/hardware.h"

#include <unistd.h>

#include "cli/system.h"
#include "model/number.h"
#include "model/rate.h"

namespace quenby {
namespace {

constexpr const char* kTool = "/usr/sbin/kavo-hal";
constexpr std::int64_t kGigabit = 1000 * kBytesPerMbit;
constexpr std::int64_t kTenGigabit = 10 * kGigabit;

}  // namespace

bool has_hardware_tool() { return access(kTool, X_OK) == 0; }

std::string board_name() {
  // Without the tool the shell would complain on the program's standard error.
  std::string name;
  if (!has_hardware_tool()) return name;
  _system(std::string(kTool) + " getBoardShortName", name);
  return name;
}

std::int64_t link_speed(const std::string& interface) {
  const std::string port = shell_word(interface);
  std::string answer;
  _system(std::string(kTool) + " isSfpPlus " + port + " 2>&1", answer);
  if (answer != "1") return kGigabit;
  std::string field;
  _system(std::string(kTool) + " getEthPhysical " + port + "  2>&1 | grep Speed | awk '{print $2}'",
          field);
  return sfp_plus_speed(field);
}

std::int64_t sfp_plus_speed(const std::string& field) {
  // No number reads as -1, and one that is too large or none converts to the smallest.
  const std::int64_t speed = to_int64(get_num(field) * static_cast<double>(kBytesPerMbit));
  return speed > 0 ? speed : kTenGigabit;
}

}  // namespace quenby
