#include "model/tariff_config.h"

#include <algorithm>
#include <set>

namespace quenby {

bool TariffConfig::addIDs(TariffSet& set) {
  return std::all_of(set.tariffs().begin(), set.tariffs().end(), [this](TariffSettings& tariff) {
    return !exists(tariff.name) && _addID(tariff);
  });
}

bool TariffConfig::fillIDs(TariffSet& set, bool allow_new) {
  return std::all_of(set.tariffs().begin(), set.tariffs().end(),
                     [this, allow_new](TariffSettings& tariff) {
                       const auto stored = find(tariff.name);
                       if (stored != tariffs_.end()) return tariff.setID(*stored);
                       return allow_new && _addID(tariff);
                     });
}

bool TariffConfig::refillIDs() {
  counter_ = kFirstTariffNumber - 1;
  return std::all_of(tariffs_.begin(), tariffs_.end(),
                     [this](TariffSettings& tariff) { return _addID(tariff); });
}

bool TariffConfig::checkID() const {
  return counter_ <= kLastTariffNumber &&
         std::all_of(tariffs_.begin(), tariffs_.end(),
                     [](const TariffSettings& tariff) { return tariff.id >= kFirstTariffNumber; });
}

bool TariffConfig::numbersFit() const {
  if (!checkID()) return false;
  std::set<std::int32_t> taken;
  return std::all_of(tariffs_.begin(), tariffs_.end(), [&taken](const TariffSettings& tariff) {
    return taken.insert(tariff.id).second;
  });
}

bool TariffConfig::get(int id, TariffSettings& out) const {
  const auto found =
      std::lower_bound(tariffs_.begin(), tariffs_.end(), id,
                       [](const TariffSettings& tariff, int key) { return tariff.id < key; });
  if (found == tariffs_.end() || found->id != id) return false;
  out = *found;
  return true;
}

bool TariffConfig::update(const TariffSet& set, bool replace, bool refill) {
  const bool updated = TariffConfigBase::update(set, replace);
  return replace && refill ? refillIDs() : updated;
}

TariffConfig TariffConfig::orderedByID() const {
  TariffConfig copy(*this);
  std::sort(copy.tariffs_.begin(), copy.tariffs_.end(),
            [](const TariffSettings& a, const TariffSettings& b) { return a.id < b.id; });
  return copy;
}

bool TariffConfig::_pushObj() {
  if (pending_.id == 0)
    return refuse(Refusal::Of::kSection, "section " + quoted(pending_.name) + " has no id");
  counter_ = std::max(counter_, pending_.id);
  return TariffSet::_pushObj();
}

bool TariffConfig::_addID(TariffSettings& tariff) { return tariff.setID(++counter_); }

}  // namespace quenby
