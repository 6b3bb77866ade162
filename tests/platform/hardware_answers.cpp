// What the program makes of the hardware tool's answers, for tests of that tool.
//
// Call: hardware_answers speed PORT    the port's rate in bytes per second
//       hardware_answers steering      the commands that the board's name leads to on port eth5

#include <iostream>
#include <string>

#include "shaper/hardware.h"
#include "shaper/packet_steering.h"

int main(int argc, char** argv) {
  const std::string query = argc > 1 ? argv[1] : "";
  if (query == "speed" && argc == 3) {
    std::cout << quenby::link_speed(argv[2]) << "\n";
  } else if (query == "steering" && argc == 2) {
    const std::string board = quenby::board_name();
    std::cout << quenby::steering_command(board, "eth5")
              << quenby::steering_reset_command(board, "eth5") << "\n";
  } else {
    std::cerr << "Usage: hardware_answers speed PORT | steering\n";
    return 2;
  }
}
