#include "shaper/mark_table.h"

#include "tc/handles.h"

namespace quenby {

MarkTable::MarkTable(const std::vector<AddressSetEntry>& entries) {
  for (const AddressSetEntry& entry : entries) marks_[entry.address] = entry.mark;
}

std::uint32_t MarkTable::connection_mark(std::uint32_t source, std::uint32_t reply_source) const {
  for (const std::uint32_t address : {source, reply_source}) {
    const auto mark = marks_.find(address);
    if (mark != marks_.end()) return mark->second;
  }
  return class_mark(kDefaultTariffClass);
}

}  // namespace quenby
