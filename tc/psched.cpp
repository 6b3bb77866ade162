#include "tc/psched.h"

namespace quenby {
namespace {

int current_hz = 1'000'000'000;

}  // namespace

int psched_hz() { return current_hz; }

void set_psched_hz(int hz) { current_hz = hz; }

}  // namespace quenby
