#pragma once

#include <string>

#include "config/paths.h"
#include "config/tariff_ini_file.h"
#include "model/global_set.h"
#include "model/tariff_set.h"

namespace quenby {

// Both files stand in `folder`.

/// The stored global file. Every save ends the process through `_error` when it fails.
class GlobalSystemConfig : public TariffIniFile {
 public:
  explicit GlobalSystemConfig(const std::string& folder = kConfigDirectory);

  /// True when something, of any type, stands at the path.
  static bool exists(const std::string& folder = kConfigDirectory);
  /// True when nothing stands there. Neither is true when a bad disk does not tell.
  static bool missing(const std::string& folder = kConfigDirectory);
  /// Removes the file; false when that was not possible or there was none.
  static bool clean(const std::string& folder = kConfigDirectory);
  /// Removes the file if there is one; ends the process when that fails.
  static void remove(const std::string& folder = kConfigDirectory);

  /// Replaces the file.
  void cfgSave(const GlobalSet& set);
};

/// The stored tariff file. Every save ends the process through `_error` when it fails.
class TariffSystemConfig : public TariffIniFile {
 public:
  /// The copy that a deletion makes passes through the folder `temporary`.
  explicit TariffSystemConfig(const std::string& folder = kConfigDirectory,
                              const std::string& temporary = kTemporaryDirectory);

  static bool exists(const std::string& folder = kConfigDirectory);
  static bool missing(const std::string& folder = kConfigDirectory);
  static bool clean(const std::string& folder = kConfigDirectory);
  static void remove(const std::string& folder = kConfigDirectory);

  /// Replaces the file; an empty set removes it.
  void cfgSave(const TariffSet& set);

  /// Appends the sections of `set` in place, all of them or none; only a kill while the kernel
  /// writes can leave some.
  void addSave(const TariffSet& set);

  /// Removes the sections named in `set`, and the file with the last of them. Needs `set` sorted.
  void delSave(const TariffSet& set);

 private:
  std::string temporary_;
};

}  // namespace quenby
