#pragma once

#include "config/ini_outline.h"
#include "model/tariff_set.h"

namespace quenby {

/// The tariff of an accepted section, as the program reads it.
TariffSettings record_of(const IniSection& section);

}  // namespace quenby
