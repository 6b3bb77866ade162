#include "ctl/packet_way.h"

#include <algorithm>

#include "tc/handles.h"

namespace quenby {
namespace {

const PlannedClass* class_of_number(const Shaping& shaping, Direction way, unsigned number) {
  for (const ShapedClass& one : shaping.classes) {
    if (one.planned.way == way && one.planned.number == number) return &one.planned;
  }
  return nullptr;
}

// Of several filters for an address the kernel takes the one that was made first.
const PlannedClass* class_of_address(const Shaping& shaping, Direction way, std::uint32_t address) {
  for (const ShapedClass& one : shaping.classes) {
    const std::vector<std::uint32_t>& list = one.planned.addresses;
    if (one.planned.way == way && std::find(list.begin(), list.end(), address) != list.end())
      return &one.planned;
  }
  return nullptr;
}

// Without the marks of its family only what leaves meets a tree.
const PlannedClass* class_by_mark(const LineFacts& line, const PacketOwner& owner, Direction way) {
  if (!owner.shaped && way == Direction::download) return nullptr;
  const PlannedClass* found = nullptr;
  if (const auto mark = packet_mark(line, owner))
    found = class_of_number(line.shaping, way, *mark & kClassMask);
  return found != nullptr ? found : class_of_number(line.shaping, way, kDefaultClass);
}

// Both directions have one default class. Whether the root leads to it depends on the upload.
const PlannedClass* class_by_address(const LineFacts& line, const PacketOwner& owner,
                                     Direction way) {
  if (!owner.address) return nullptr;
  if (const PlannedClass* const own = class_of_address(line.shaping, way, *owner.address))
    return own;
  if (!line.settings.upload.line.default_tariff) return nullptr;
  return class_of_number(line.shaping, Direction::download, kDefaultClass);
}

bool is_dropped(const LineFacts& line, const PacketOwner& owner, Direction way) {
  if (!line.by_mark()) return false;
  const ResolvedLine& direction = line.settings.direction(way).line;
  // The queue of a closed upload takes no packet of either family; the rules know their own alone.
  if (direction.blocked()) return owner.shaped || way == Direction::upload;
  return direction.default_blocked() && packet_mark(line, owner) == class_mark(kDefaultTariffClass);
}

}  // namespace

std::optional<std::uint32_t> packet_mark(const LineFacts& line, const PacketOwner& owner) {
  const bool marks = line.shaping.enabled && line.by_mark() && !line.lacks_wan() && owner.shaped &&
                     !line.settings.upload.line.blocked();
  if (!marks) return std::nullopt;
  return class_mark(owner.number.value_or(kDefaultTariffClass));
}

PacketWay packet_way(const LineFacts& line, const PacketOwner& owner, Direction way) {
  const bool upload = way == Direction::upload;
  PacketWay result{way, line.shaping.directions[upload ? 0 : 1].device};
  if (!line.shaping.enabled) return result;
  if (line.lacks_wan()) {
    result.passing = Passing::no_interface;
  } else if (is_dropped(line, owner, way)) {
    result.passing = Passing::dropped;
  } else if (const PlannedClass* const taken = line.by_mark()
                                                   ? class_by_mark(line, owner, way)
                                                   : class_by_address(line, owner, way)) {
    result.passing = Passing::in_class;
    result.taken = *taken;
  }
  return result;
}

}  // namespace quenby
