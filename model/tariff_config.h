#pragma once

#include "model/tariff_set.h"

namespace quenby {

/// The stored tariffs, and the owner of their class numbers. Numbers are handed out from a counter
/// that only grows (4 upward; 1 to 3 are the root, default and default-tariff classes) until
/// `refillIDs` starts again.
class TariffConfig : public TariffSet {
 public:
  using TariffConfigBase::get;
  using TariffConfigBase::update;

  /// Renumbers every tariff of `set`. False at the first tariff whose name is stored already or
  /// when no number is left; those before it keep their new numbers. Needs this list sorted.
  bool addIDs(TariffSet& set);

  /// Gives every tariff of `set` the number stored under its name, or, with `allow_new`, the next
  /// one. False at the first tariff that gets none. Needs this list sorted.
  bool fillIDs(TariffSet& set, bool allow_new);

  /// Renumbers every stored tariff from 4 in list order. False at the first that gets none.
  bool refillIDs();

  /// Whether the counter and every number are within the limits.
  bool checkID() const;

  /// Whether `checkID` holds and no number stands twice. A list whose numbers do not fit is
  /// renumbered before anything is built or changed by number.
  bool numbersFit() const;

  /// Copies the tariff of this number; false, with `out` unchanged, when there is none. Needs the
  /// numbers ascending in list order, as in `orderedByID()`.
  bool get(int id, TariffSettings& out) const;

  /// `TariffConfigBase::update`; with `replace` and `refill` the list is renumbered as well.
  bool update(const TariffSet& set, bool replace, bool refill);

  /// A copy for lookups by number.
  TariffConfig orderedByID() const;

 protected:
  /// Refuses a tariff without a number.
  bool _pushObj() override;

 private:
  bool _addID(TariffSettings& tariff);

  /// The last number handed out or read.
  std::int32_t counter_ = kFirstTariffNumber - 1;
};

}  // namespace quenby
