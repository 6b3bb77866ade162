#include <cstdlib>
#include <fstream>

#include "tests/config/ini_generator.h"

// Writes the first texts of the generator to files, for tests of the whole program.
// Call: ini_samples FOLDER COUNT
int main(int argc, char* argv[]) {
  if (argc != 3) return 2;
  quenby::test::IniGenerator generator;
  for (int i = 0; i < std::atoi(argv[2]); ++i) {
    std::ofstream out(argv[1] + ("/" + std::to_string(i)), std::ios::binary);
    out << generator.next(i) << std::flush;
    if (!out.good()) return 1;
  }
  return 0;
}
