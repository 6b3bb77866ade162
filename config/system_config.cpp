#include "config/system_config.h"

#include <boost/filesystem.hpp>

#include "cli/error.h"
#include "config/durable_file.h"
#include "config/paths.h"
#include "config/temporary_file.h"

namespace quenby {
namespace {

namespace fs = boost::filesystem;

constexpr const char* kTemporaryPattern = "/tmp/kavo-qos-shaper-%%%%";

bool present(const char* path) {
  boost::system::error_code error;
  return fs::exists(fs::status(path, error)) && !error;
}

bool absent(const char* path) {
  boost::system::error_code error;
  return fs::status(path, error).type() == fs::file_not_found;
}

bool removed(const char* path) {
  try {
    return remove_file(path);
  } catch (const fs::filesystem_error&) {
    return false;
  }
}

void remove_or_exit(const char* path) {
  try {
    remove_file(path);
  } catch (const fs::filesystem_error& e) {
    _error("failed to update configuration", e);
  }
}

// A copy beside the tariff file can take its place in one step; `from` may be on another disk.
void replace_tariffs(const std::string& from) {
  TemporaryFile copy = TemporaryFile::create(std::string(kTariffFile) + "-%%%%");
  copy_contents(from, copy.path());
  copy.replace(kTariffFile);
}

}  // namespace

GlobalSystemConfig::GlobalSystemConfig() : TariffIniFile(kGlobalFile, false) {}

bool GlobalSystemConfig::exists() { return present(kGlobalFile); }

bool GlobalSystemConfig::missing() { return absent(kGlobalFile); }

bool GlobalSystemConfig::clean() { return removed(kGlobalFile); }

void GlobalSystemConfig::remove() { remove_or_exit(kGlobalFile); }

void GlobalSystemConfig::cfgSave(const GlobalSet& set) { TariffIniFile::cfgSave(set); }

TariffSystemConfig::TariffSystemConfig() : TariffIniFile(kTariffFile, false) {}

bool TariffSystemConfig::exists() { return present(kTariffFile); }

bool TariffSystemConfig::missing() { return absent(kTariffFile); }

bool TariffSystemConfig::clean() { return removed(kTariffFile); }

void TariffSystemConfig::remove() { remove_or_exit(kTariffFile); }

void TariffSystemConfig::cfgSave(const TariffSet& set) {
  if (set.empty()) {
    remove();
  } else {
    TariffIniFile::cfgSave(set);
  }
}

void TariffSystemConfig::addSave(const TariffSet& set) {
  bool written = false;
  try {
    make_config_directory();
    written = append_text(kTariffFile, set.text());
  } catch (const fs::filesystem_error& e) {
    _error("failed to save configuration", e);
  }
  if (!written) _error("failed to save configuration");
}

void TariffSystemConfig::delSave(const TariffSet& set) {
  bool copied = false;
  try {
    const TemporaryFile temporary = TemporaryFile::create(kTemporaryPattern);
    copied = modify_ini(set, temporary.path());
    if (copied && fs::file_size(temporary.path()) == 0) {
      remove_file(kTariffFile);
    } else if (copied) {
      replace_tariffs(temporary.path());
    }
  } catch (const fs::filesystem_error& e) {
    _error("failed to update configuration", e);
  }
  if (!copied) _error("failed to update configuration");
}

}  // namespace quenby
