#include "config/system_config.h"

#include <boost/filesystem.hpp>

#include "cli/error.h"
#include "config/durable_file.h"
#include "config/temporary_file.h"

namespace quenby {
namespace {

namespace fs = boost::filesystem;

constexpr const char* kTemporaryName = "/kavo-qos-shaper-%%%%";

bool present(const std::string& path) {
  boost::system::error_code error;
  return fs::exists(fs::status(path, error)) && !error;
}

bool absent(const std::string& path) {
  boost::system::error_code error;
  return fs::status(path, error).type() == fs::file_not_found;
}

bool removed(const std::string& path) {
  try {
    return remove_file(path);
  } catch (const fs::filesystem_error&) {
    return false;
  }
}

void remove_or_exit(const std::string& path) {
  try {
    remove_file(path);
  } catch (const fs::filesystem_error& e) {
    _error("failed to update configuration", e);
  }
}

// A copy beside the file can take its place in one step; `from` may be on another disk.
void replace_by_copy(const std::string& file, const std::string& from) {
  TemporaryFile copy = TemporaryFile::create(file + "-%%%%");
  copy_contents(from, copy.path());
  copy.replace(file);
}

}  // namespace

GlobalSystemConfig::GlobalSystemConfig(const std::string& folder)
    : TariffIniFile(folder + kGlobalName, false, folder) {}

bool GlobalSystemConfig::exists(const std::string& folder) { return present(folder + kGlobalName); }

bool GlobalSystemConfig::missing(const std::string& folder) { return absent(folder + kGlobalName); }

bool GlobalSystemConfig::clean(const std::string& folder) { return removed(folder + kGlobalName); }

void GlobalSystemConfig::remove(const std::string& folder) { remove_or_exit(folder + kGlobalName); }

void GlobalSystemConfig::cfgSave(const GlobalSet& set) { TariffIniFile::cfgSave(set); }

TariffSystemConfig::TariffSystemConfig(const std::string& folder, const std::string& temporary)
    : TariffIniFile(folder + kTariffName, false, folder), temporary_(temporary) {}

bool TariffSystemConfig::exists(const std::string& folder) { return present(folder + kTariffName); }

bool TariffSystemConfig::missing(const std::string& folder) { return absent(folder + kTariffName); }

bool TariffSystemConfig::clean(const std::string& folder) { return removed(folder + kTariffName); }

void TariffSystemConfig::remove(const std::string& folder) { remove_or_exit(folder + kTariffName); }

void TariffSystemConfig::cfgSave(const TariffSet& set) {
  if (set.empty()) {
    remove_or_exit(path());
  } else {
    TariffIniFile::cfgSave(set);
  }
}

void TariffSystemConfig::addSave(const TariffSet& set) {
  bool written = false;
  try {
    make_config_directory(folder());
    written = append_text(path(), set.text());
  } catch (const fs::filesystem_error& e) {
    _error("failed to save configuration", e);
  }
  if (!written) _error("failed to save configuration");
}

void TariffSystemConfig::delSave(const TariffSet& set) {
  bool copied = false;
  try {
    const TemporaryFile temporary = TemporaryFile::create(temporary_ + kTemporaryName);
    copied = modify_ini(set, temporary.path());
    if (copied && fs::file_size(temporary.path()) == 0) {
      remove_file(path());
    } else if (copied) {
      replace_by_copy(path(), temporary.path());
    }
  } catch (const fs::filesystem_error& e) {
    _error("failed to update configuration", e);
  }
  if (!copied) _error("failed to update configuration");
}

}  // namespace quenby
