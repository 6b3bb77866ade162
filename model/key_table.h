#pragma once

#include <map>
#include <optional>
#include <string>
#include <vector>

#include "model/refusal.h"

namespace quenby {

/// A key of a section.
template <typename Record>
struct Key {
  /// Takes the value into the record; false means that it was refused.
  bool (*set)(Record&, const std::string&);
  /// What a refused value is not.
  const char* wanted;
};

/// What a speed that is out of range is not; one that is no number at all is no refusal.
inline constexpr const char* kWantedRate = "a number of kbit/s below 9e15";

/// The refusal of a key that stands above the first header.
inline constexpr const char* kNoSection = "key before the first section header";

template <typename Record>
using KeyTable = std::map<std::string, Key<Record>>;

/// Gives `record` the value of one key. Why not, where the value is refused or the table does not
/// have the key.
template <typename Record>
std::optional<Refusal> set_key(const KeyTable<Record>& table, const std::string& key,
                               Record& record, const std::string& value) {
  const auto found = table.find(key);
  if (found == table.end())
    return Refusal{Refusal::Of::kKey, "unknown key " + quoted(key) + " in this section"};
  if (found->second.set(record, value)) return {};
  return Refusal{Refusal::Of::kValue, quoted(value) + " is not " + found->second.wanted};
}

/// The keys in alphabetical order.
template <typename Record>
std::vector<std::string> key_names(const KeyTable<Record>& table) {
  std::vector<std::string> names;
  for (const auto& [name, key] : table) names.push_back(name);
  return names;
}

}  // namespace quenby
