#include "shaper/mark_table.h"

#include <string>

#include "tc/handles.h"

namespace quenby {

MarkTable::MarkTable(const std::vector<AddressSetEntry>& entries,
                     const std::vector<PrefixSetEntry>& prefixes) {
  for (const AddressSetEntry& entry : entries) marks_[entry.address] = entry.mark;
  for (const PrefixSetEntry& entry : prefixes)
    prefixes_[entry.address.length][entry.address.address] = entry.mark;
}

std::size_t MarkTable::Hash::operator()(const Ip6Address& address) const {
  const std::string bytes(address.begin(), address.end());
  return std::hash<std::string>()(bytes);
}

std::uint32_t MarkTable::connection_mark(std::uint32_t source, std::uint32_t reply_source) const {
  for (const std::uint32_t address : {source, reply_source}) {
    const auto mark = marks_.find(address);
    if (mark != marks_.end()) return mark->second;
  }
  return class_mark(kDefaultTariffClass);
}

std::uint32_t MarkTable::connection_mark(const Ip6Address& source,
                                         const Ip6Address& reply_source) const {
  for (const Ip6Address& address : {source, reply_source}) {
    for (const auto& [length, marks] : prefixes_) {
      const auto mark = marks.find(masked(address, length));
      if (mark != marks.end()) return mark->second;
    }
  }
  return class_mark(kDefaultTariffClass);
}

}  // namespace quenby
