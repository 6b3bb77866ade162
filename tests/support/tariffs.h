#pragma once

#include <string>

#include "model/global_set.h"
#include "model/tariff_set.h"

namespace quenby::test {

/// A tariff with a name and, unless it is 0, a class number.
inline TariffSettings tariff(const std::string& name, int id = 0) {
  TariffSettings t;
  t.name = name;
  if (id != 0) t.setID(id);
  return t;
}

/// A line whose global section was read, with speeds in bytes per second.
inline GlobalSet line(const std::string& wan, std::int64_t download, std::int64_t upload) {
  GlobalSet set;
  set.has_global = true;
  set.global.wan = wan;
  set.global.download.speed = download;
  set.global.upload.speed = upload;
  return set;
}

/// A tariff file's contents, in the order given.
template <typename Set = TariffSet, typename... T>
Set set_of(const T&... tariffs) {
  Set set;
  (set.addTariff(tariffs), ...);
  return set;
}

inline std::vector<std::string> names(const TariffConfigBase& set) {
  std::vector<std::string> result;
  for (const TariffSettings& t : set.tariffs()) result.push_back(t.name);
  return result;
}

inline std::vector<int> ids(const TariffConfigBase& set) {
  std::vector<int> result;
  for (const TariffSettings& t : set.tariffs()) result.push_back(t.id);
  return result;
}

}  // namespace quenby::test
