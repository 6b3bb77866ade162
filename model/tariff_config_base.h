#pragma once

#include <span>
#include <string>
#include <vector>

#include "model/tariff_settings.h"

namespace quenby {

/// A list of tariffs. Lookups by name are binary searches: call `sort()` first after adding.
class TariffConfigBase {
 public:
  using List = std::vector<TariffSettings>;

  virtual ~TariffConfigBase() = default;
  TariffConfigBase() = default;
  TariffConfigBase(const TariffConfigBase&) = default;
  TariffConfigBase& operator=(const TariffConfigBase&) = default;
  TariffConfigBase(TariffConfigBase&&) noexcept = default;
  TariffConfigBase& operator=(TariffConfigBase&&) noexcept = default;

  const List& tariffs() const { return tariffs_; }
  /// For adjusting tariffs in place; their names must stay.
  List& tariffs() { return tariffs_; }
  bool empty() const { return tariffs_.empty(); }

  /// Orders the list by name; tariffs of one name end up side by side in any order.
  void sort();

  /// The tariff of this name, or the end of the list. Needs the list sorted.
  List::const_iterator find(const std::string& name) const;
  bool exists(const std::string& name) const;
  /// All tariffs of this name. Needs the list sorted.
  std::span<const TariffSettings> allOf(const std::string& name) const;
  /// Copies the tariff of this name; false, with `out` unchanged, when there is none.
  bool get(const std::string& name, TariffSettings& out) const;

  /// Removes every tariff whose name `other` holds; the rest keep their order. Needs `other`
  /// sorted.
  void remove(const TariffConfigBase& other);

  /// Makes the list a copy of `other`'s (`replace`), or merges: a tariff of `other` takes the place
  /// of the one of its name, and the result is sorted. Merging needs `other` sorted. Always true.
  bool update(const TariffConfigBase& other, bool replace);

 protected:
  List tariffs_;
};

}  // namespace quenby
