#include "config/system_config.h"

#include <boost/filesystem.hpp>
#include <fstream>
#include <unistd.h>

#include "cli/error.h"
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

// Whether what is appended would join the last line of the file.
bool ends_inside_line(const char* path) {
  std::ifstream in(path, std::ios::binary | std::ios::ate);
  if (!in.is_open() || in.tellg() <= 0) return false;
  in.seekg(-1, std::ios::end);
  return in.get() != '\n';
}

}  // namespace

GlobalSystemConfig::GlobalSystemConfig() : TariffIniFile(kGlobalFile, false) {}

bool GlobalSystemConfig::exists() { return present(kGlobalFile); }

bool GlobalSystemConfig::clean() { return unlink(kGlobalFile) == 0; }

void GlobalSystemConfig::cfgSave(const GlobalSet& set) { TariffIniFile::cfgSave(set); }

TariffSystemConfig::TariffSystemConfig() : TariffIniFile(kTariffFile, false) {}

bool TariffSystemConfig::exists() { return present(kTariffFile); }

bool TariffSystemConfig::clean() { return unlink(kTariffFile) == 0; }

void TariffSystemConfig::cfgSave(const TariffSet& set) {
  if (set.empty()) {
    clean();
  } else {
    TariffIniFile::cfgSave(set);
  }
}

void TariffSystemConfig::addSave(const TariffSet& set) {
  bool written = false;
  try {
    make_config_directory();
    const bool broken_line = ends_inside_line(kTariffFile);
    std::ofstream out(kTariffFile, std::ios::app);
    if (broken_line) out << '\n';
    written = set.write(out);
    out.close();
    written = written && out.good();
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
      clean();
    } else if (copied) {
      // The copy takes over the mode of what it copies.
      fs::permissions(temporary.path(), fs::status(kTariffFile).permissions());
      fs::copy_file(temporary.path(), kTariffFile, fs::copy_options::overwrite_existing);
    }
  } catch (const fs::filesystem_error& e) {
    _error("failed to update configuration", e);
  }
  if (!copied) _error("failed to update configuration");
}

}  // namespace quenby
