#include "ctl/refusal.h"

#include <iostream>

#include "cli/refused.h"

namespace quenby {

Status or_refusal(const Work& work) {
  try {
    return work();
  } catch (const Refused& refused) {
    std::cerr << "quenbyctl: quenby refuses this: " << refused.what() << '\n';
    if (refused.error()) std::cerr << refused.error()->text() << '\n';
    return kFindings;
  }
}

}  // namespace quenby
