#pragma once

#include <string>
#include <vector>

#include "config/parse_error.h"

/// What an accepted file says and where each word of it stands, for messages about it.
namespace quenby {

struct IniEntry {
  /// In lower case, as the configuration was given it.
  std::string key;
  std::string value;
  Position key_at;
  Position value_at;
};

struct IniSection {
  std::string name;
  /// Where the name stands.
  Position at;
  std::vector<IniEntry> entries;

  /// The last entry of a key, which is the one that counts; null when there is none.
  const IniEntry* last(const std::string& key) const;
};

/// The sections in file order. A name that stands twice is two of them.
using IniOutline = std::vector<IniSection>;

}  // namespace quenby
