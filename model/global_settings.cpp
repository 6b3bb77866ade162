#include "model/global_settings.h"

namespace quenby {
namespace {

bool set_switch(const std::string& text, bool& value) {
  if (text != "true" && text != "false" && !text.empty()) return false;
  value = text == "true";
  return true;
}

}  // namespace

void GlobalSettings::clear() {
  BandwidthSettingsInterface::clear();
  wan.clear();
  enabled = true;
  ipv6 = false;
}

bool GlobalSettings::operator==(const GlobalSettings& other) const {
  return wan == other.wan && enabled == other.enabled && ipv6 == other.ipv6 &&
         download == other.download && upload == other.upload;
}

bool GlobalSettings::setEnabled(const std::string& text) { return set_switch(text, enabled); }

bool GlobalSettings::setIpv6(const std::string& text) { return set_switch(text, ipv6); }

bool GlobalSettings::setWan(const std::string& text) {
  wan = text;
  return true;
}

}  // namespace quenby
