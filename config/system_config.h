#pragma once

#include "config/tariff_ini_file.h"
#include "model/global_set.h"
#include "model/tariff_set.h"

namespace quenby {

/// The stored global file. Every save ends the process through `_error` when it fails.
class GlobalSystemConfig : public TariffIniFile {
 public:
  GlobalSystemConfig();

  /// True when something, of any type, stands at the path.
  static bool exists();
  /// True when nothing stands there. Neither is true when a bad disk does not tell.
  static bool missing();
  /// Removes the file; false when that was not possible or there was none.
  static bool clean();
  /// Removes the file if there is one; ends the process when that fails.
  static void remove();

  /// Replaces the file.
  void cfgSave(const GlobalSet& set);
};

/// The stored tariff file. Every save ends the process through `_error` when it fails.
class TariffSystemConfig : public TariffIniFile {
 public:
  TariffSystemConfig();

  static bool exists();
  static bool missing();
  static bool clean();
  static void remove();

  /// Replaces the file; an empty set removes it.
  void cfgSave(const TariffSet& set);

  /// Appends the sections of `set` in place, all of them or none; only a kill while the kernel
  /// writes can leave some.
  void addSave(const TariffSet& set);

  /// Removes the sections named in `set`, and the file with the last of them. Needs `set` sorted.
  void delSave(const TariffSet& set);
};

}  // namespace quenby
