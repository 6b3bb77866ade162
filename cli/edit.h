#pragma once

#include <string>

#include "model/global_set.h"
#include "model/tariff_config.h"

/// What an option is going to do, as a value: read, numbered and compared, but nothing changed yet.
/// Each function throws `Refused` where the option fails before it has changed anything.
namespace quenby {

/// What happens to the kernel.
enum class KernelWork {
  none,
  /// Only what differs, where that gives the same as building everything.
  change,
  /// Everything is removed and, where there is something to shape, built.
  rebuild,
  /// The same, whether shaping is enabled or not.
  rebuild_always,
  /// Everything is built over what is there; removed where there is nothing to shape.
  build,
};

/// What happens to the stored tariffs.
enum class TariffSave {
  none,
  /// All of `Edit::tariffs` are written.
  whole,
  /// The same, before the kernel is touched.
  whole_first,
  /// `Edit::added` is appended.
  append,
  /// `Edit::given` takes the place of the sections of its names.
  replace,
  /// `Edit::removed` goes, the file with the last of it.
  remove,
};

struct Edit {
  /// The line before and after.
  GlobalSet line_before;
  GlobalSet line;
  /// The stored tariffs before and after, those after with their class numbers.
  TariffConfig stored;
  TariffConfig tariffs;
  /// The tariffs that the option was given.
  TariffSet given;
  /// What differs: a changed tariff is in both.
  TariffSet removed;
  TariffSet added;

  KernelWork work = KernelWork::none;
  TariffSave save = TariffSave::none;
  /// Whether `line` is stored too.
  bool save_line = false;
};

/// Whether there is something to shape and shaping is enabled.
bool is_shaped(const GlobalSet& line, const TariffSet& tariffs);

Edit edit_of_load();
Edit edit_of_reload();
Edit edit_of_add(const std::string& path);
Edit edit_of_delete(const std::string& name);
Edit edit_of_tariff_update(const std::string& path);
Edit edit_of_update(const std::string& path);
Edit edit_of_global_update(const std::string& path);

}  // namespace quenby
