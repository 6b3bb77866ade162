#include "shaper/packet_steering.h"

#include <algorithm>
#include <cctype>
#include <fstream>
#include <map>
#include <sstream>

namespace quenby {
namespace {

constexpr const char* kSteeredBoard = "KX-6-TR";
constexpr const char* kResetAnswer = "Infinity\n";
constexpr const char* kNoSteering = "0000";

// Hexadecimal processor bitmaps in the format of the kernel's rps_cpus.
const std::map<std::string, const char*> kPortMasks = {
    {"eth1", "0F00"}, {"eth2", "1700"}, {"eth3", "2700"}, {"eth4", "4780"},
    {"eth5", "8740"}, {"eth6", "0780"}, {"eth7", "0740"}, {"eth8", "0720"},
};

// The names are those of the table, so that they need no quoting.
std::string mask_file(const std::string& wan) {
  return "/sys/class/net/" + wan + "/queues/rx-0/rps_cpus";
}

std::string write_mask(const std::string& mask, const std::string& wan) {
  return "echo " + mask + " > " + mask_file(wan);
}

// The kernel groups the digits by eight, with commas, and fills them up with zeros.
std::string without_filling(std::string mask) {
  std::erase(mask, ',');
  const std::size_t start = mask.find_first_not_of('0');
  if (start == std::string::npos) return mask.empty() ? mask : "0";
  std::transform(mask.begin(), mask.end(), mask.begin(),
                 [](unsigned char digit) { return static_cast<char>(std::tolower(digit)); });
  return mask.substr(start);
}

}  // namespace

std::string steering_command(const std::string& board, const std::string& wan) {
  const auto port = kPortMasks.find(wan);
  if (board != kSteeredBoard || port == kPortMasks.end()) return "";
  return write_mask(port->second, wan);
}

std::string steered_processors(const std::string& command) {
  std::istringstream words(command);
  std::string echo;
  std::string mask;
  words >> echo >> mask;
  return without_filling(mask);
}

std::string standing_processors(const std::string& wan) {
  std::ifstream file(mask_file(wan));
  std::string mask;
  file >> mask;
  return without_filling(mask);
}

std::string steering_reset_command(const std::string& board, const std::string& wan) {
  if (board != kResetAnswer || kPortMasks.count(wan) == 0) return "";
  return write_mask(kNoSteering, wan);
}

}  // namespace quenby
