#include "model/global_settings.h"

namespace quenby {

void GlobalSettings::clear() {
  BandwidthSettingsInterface::clear();
  wan.clear();
  enabled = true;
}

bool GlobalSettings::operator==(const GlobalSettings& other) const {
  return wan == other.wan && enabled == other.enabled && download == other.download &&
         upload == other.upload;
}

bool GlobalSettings::setEnabled(const std::string& text) {
  if (text == "true") {
    enabled = true;
    return true;
  }
  if (!text.empty() && text != "false") return false;
  enabled = false;
  return true;
}

bool GlobalSettings::setWan(const std::string& text) {
  wan = text;
  return true;
}

}  // namespace quenby
