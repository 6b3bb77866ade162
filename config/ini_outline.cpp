#include "config/ini_outline.h"

#include <algorithm>

namespace quenby {

const IniEntry* IniSection::last(const std::string& key) const {
  const auto found = std::find_if(entries.rbegin(), entries.rend(),
                                  [&key](const IniEntry& entry) { return entry.key == key; });
  return found != entries.rend() ? &*found : nullptr;
}

}  // namespace quenby
