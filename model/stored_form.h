#pragma once

#include "model/global_set.h"
#include "model/tariff_set.h"

/// A file holds less than a record: whole kbit/s, 32 bits of a burst size, the text of an
/// aggregation, and 0 for a tariff's speed that was never set. What is applied together with a save
/// is brought to that form first, so that the next run reads back exactly what the kernel was
/// given.
namespace quenby {

void round_to_stored(GlobalSet& set);
void round_to_stored(TariffSet& set);

/// False when some tariff has a value that would be written in a form that no reader accepts: a
/// burst size whose low 32 bits are negative.
bool can_be_stored(const TariffSet& set);

/// The first such tariff, null when there is none.
const TariffSettings* find_unstorable(const TariffSet& set);

}  // namespace quenby
