#pragma once

#include <map>
#include <string>
#include <vector>

namespace quenby {

/// The keys of a section, each with what takes its value into the record; false means that the
/// value was refused.
template <typename Record>
using KeyTable = std::map<std::string, bool (*)(Record&, const std::string&)>;

/// Gives `record` the value of one key. False for a key that the table has not, too.
template <typename Record>
bool set_key(const KeyTable<Record>& table, const std::string& key, Record& record,
             const std::string& value) {
  const auto setter = table.find(key);
  return setter != table.end() && setter->second(record, value);
}

/// The keys in alphabetical order.
template <typename Record>
std::vector<std::string> key_names(const KeyTable<Record>& table) {
  std::vector<std::string> names;
  for (const auto& [name, setter] : table) names.push_back(name);
  return names;
}

}  // namespace quenby
