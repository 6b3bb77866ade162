#include "model/global_set.h"

namespace quenby {
namespace {

bool set_default_speed(DefaultDirSettings& direction, const std::string& value) {
  if (!direction.setSpeed(value)) return false;
  direction.ceiling = direction.speed;
  return true;
}

// Writes both speeds; one that was never set has no line.
template <typename D>
void write_speeds(std::ofstream& out, const BandwidthSettingsInterface<D>& settings) {
  if (settings.download.speed != kNeverSet)
    out << "download_speed=" << settings.download.speedKbps() << '\n';
  if (settings.upload.speed != kNeverSet)
    out << "upload_speed=" << settings.upload.speedKbps() << '\n';
}

}  // namespace

const KeyTable<GlobalSettings>& global_keys() {
  using G = GlobalSettings;
  using S = const std::string;
  static const KeyTable<G> kKeys = {
      {"download_speed", [](G& g, S& v) { return g.download.setSpeed(v); }},
      {"upload_speed", [](G& g, S& v) { return g.upload.setSpeed(v); }},
      {"enabled", [](G& g, S& v) { return g.setEnabled(v); }},
      {"wan", [](G& g, S& v) { return g.setWan(v); }},
  };
  return kKeys;
}

const KeyTable<DefaultSettings>& default_keys() {
  using D = DefaultSettings;
  using S = const std::string;
  static const KeyTable<D> kKeys = {
      {"download_speed", [](D& d, S& v) { return set_default_speed(d.download, v); }},
      {"upload_speed", [](D& d, S& v) { return set_default_speed(d.upload, v); }},
  };
  return kKeys;
}

bool GlobalSet::write(std::ofstream& out) const {
  if (!out.is_open()) return false;
  out << '[' << GlobalSettings::name() << "]\n";
  write_speeds(out, global);
  if (!global.wan.empty()) out << "wan=" << global.wan << '\n';
  out << "enabled=" << (global.enabled ? "true" : "false") << '\n';
  if (has_default) {
    out << '[' << DefaultSettings::name() << "]\n";
    write_speeds(out, defaults);
  }
  return true;
}

bool GlobalSet::onSection(const std::string& name) {
  if (name == GlobalSettings::name()) {
    global.clear();
    global.enabled = false;
    has_global = true;
  } else if (name == DefaultSettings::name()) {
    defaults.clear();
    has_default = true;
  } else {
    return false;
  }
  section = name;
  return true;
}

bool GlobalSet::onKey(const std::string& current, const std::string& key,
                      const std::string& value) {
  if (current != section) return false;
  if (section == GlobalSettings::name()) return set_key(global_keys(), key, global, value);
  if (section == DefaultSettings::name()) return set_key(default_keys(), key, defaults, value);
  return false;
}

bool GlobalSet::endSection() {
  section.clear();
  return true;
}

bool GlobalSet::has_default_tariff(Direction way) const {
  return has_default && defaults.direction(way).speed != kNeverSet;
}

}  // namespace quenby
