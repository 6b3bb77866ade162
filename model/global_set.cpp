#include "model/global_set.h"

namespace quenby {
namespace {

constexpr const char* kWantedSwitch = "\"true\" or \"false\"";

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
      {"download_speed", {[](G& g, S& v) { return g.download.setSpeed(v); }, kWantedRate}},
      {"upload_speed", {[](G& g, S& v) { return g.upload.setSpeed(v); }, kWantedRate}},
      {"enabled", {[](G& g, S& v) { return g.setEnabled(v); }, kWantedSwitch}},
      {"ipv6", {[](G& g, S& v) { return g.setIpv6(v); }, kWantedSwitch}},
      {"wan", {[](G& g, S& v) { return g.setWan(v); }, "an interface name"}},
  };
  return kKeys;
}

const KeyTable<DefaultSettings>& default_keys() {
  using D = DefaultSettings;
  using S = const std::string;
  static const KeyTable<D> kKeys = {
      {"download_speed",
       {[](D& d, S& v) { return set_default_speed(d.download, v); }, kWantedRate}},
      {"upload_speed", {[](D& d, S& v) { return set_default_speed(d.upload, v); }, kWantedRate}},
  };
  return kKeys;
}

bool GlobalSet::write(std::ofstream& out) const {
  if (!out.is_open()) return false;
  out << '[' << GlobalSettings::name() << "]\n";
  write_speeds(out, global);
  if (!global.wan.empty()) out << "wan=" << global.wan << '\n';
  out << "enabled=" << (global.enabled ? "true" : "false") << '\n';
  if (global.ipv6) out << "ipv6=true\n";
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
    return refuse(Refusal::Of::kName, "unknown section " + quoted(name) + ": only [" +
                                          GlobalSettings::name() + "] and [" +
                                          DefaultSettings::name() + "] are allowed here");
  }
  section = name;
  return true;
}

bool GlobalSet::onKey(const std::string& current, const std::string& key,
                      const std::string& value) {
  if (current.empty() || current != section) return refuse(Refusal::Of::kKey, kNoSection);
  const auto refusal = section == GlobalSettings::name()
                           ? set_key(global_keys(), key, global, value)
                           : set_key(default_keys(), key, defaults, value);
  return !refusal || refuse(refusal->of, refusal->reason);
}

bool GlobalSet::endSection() {
  section.clear();
  return true;
}

bool GlobalSet::has_default_tariff(Direction way) const {
  return has_default && defaults.direction(way).speed != kNeverSet;
}

}  // namespace quenby
