#include "model/tariff_config_base.h"

#include <algorithm>

namespace quenby {

void TariffConfigBase::sort() { std::sort(tariffs_.begin(), tariffs_.end()); }

TariffConfigBase::List::const_iterator TariffConfigBase::find(const std::string& name) const {
  const auto found = std::lower_bound(
      tariffs_.begin(), tariffs_.end(), name,
      [](const TariffSettings& tariff, const std::string& key) { return tariff.name < key; });
  return found != tariffs_.end() && found->name == name ? found : tariffs_.end();
}

bool TariffConfigBase::exists(const std::string& name) const {
  return find(name) != tariffs_.end();
}

std::span<const TariffSettings> TariffConfigBase::allOf(const std::string& name) const {
  const auto first = find(name);
  return {first, std::find_if(first, tariffs_.end(), [&name](const TariffSettings& tariff) {
            return tariff.name != name;
          })};
}

bool TariffConfigBase::get(const std::string& name, TariffSettings& out) const {
  const auto found = find(name);
  if (found == tariffs_.end()) return false;
  out = *found;
  return true;
}

void TariffConfigBase::remove(const TariffConfigBase& other) {
  std::erase_if(tariffs_,
                [&other](const TariffSettings& tariff) { return other.exists(tariff.name); });
}

bool TariffConfigBase::update(const TariffConfigBase& other, bool replace) {
  if (replace) {
    tariffs_ = other.tariffs_;
    return true;
  }
  remove(other);
  tariffs_.insert(tariffs_.end(), other.tariffs_.begin(), other.tariffs_.end());
  sort();
  return true;
}

}  // namespace quenby
