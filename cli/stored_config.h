#pragma once

#include "model/global_set.h"
#include "model/tariff_config.h"

namespace quenby {

/// Reads the stored global file. False, with `global` unchanged, when there is none; one that does
/// not parse ends the process.
bool load_global_config(GlobalSet& global);

/// Reads the stored tariff file and orders the tariffs by name. False when there is none; one that
/// does not parse ends the process.
bool load_tariff_config(TariffConfig& tariffs);

}  // namespace quenby
