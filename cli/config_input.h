#pragma once

#include <string>

#include "model/global_set.h"
#include "model/tariff_config.h"

/// Where the operations get their configuration from.
namespace quenby {

/// Reads the stored global file. False, with `global` unchanged, when there is none; one that does
/// not parse is `Refused`.
bool load_global_config(GlobalSet& global);

/// Reads the stored tariff file and orders the tariffs by name. False when there is none; one that
/// does not parse is `Refused`.
bool load_tariff_config(TariffConfig& tariffs);

/// What an operation finds stored; defaults where there is no file.
struct Stored {
  GlobalSet global;
  TariffConfig tariffs;
  bool has_tariffs = false;
};

/// Opens an operation: reads both files as above, the global one first.
Stored load_stored();
/// The same for an operation that no tariff file keeps from its work.
GlobalSet load_line();

/// Gives the stored tariffs new numbers where theirs do not fit. True when it did: they are to be
/// saved.
bool renumber_unfit(TariffConfig& tariffs);

/// Brings the stored tariffs to the form in which the whole list is written, which is what is to be
/// applied too. A value that no reader would take back is `Refused`: call it before anything is
/// changed.
void prepare_whole_save(TariffConfig& tariffs);

/// Renumbers the stored tariffs, for a save of the whole list. `Refused` when there are too many,
/// or a value cannot be saved.
void renumber(TariffConfig& tariffs);

/// Puts every tariff that `list` has in another form than `current` into `removed` (as it is
/// stored) and `added` (as it is in `list`); one that `current` has not into `added` alone. Where
/// `current` has several of the name, all go into `removed`. Prefixes make a difference with
/// `ipv6`, where IPv6 is shaped, alone. `current` is ordered by name.
void collect_differences(const TariffConfig& current, const TariffSet& list, bool ipv6,
                         TariffSet& removed, TariffSet& added);

}  // namespace quenby
