#include "model/shaper_config_interface.h"

namespace quenby {

bool ShaperConfigInterface::refuse(Refusal::Of of, const std::string& reason) {
  refusal_ = {of, reason};
  return false;
}

}  // namespace quenby
