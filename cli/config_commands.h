#pragma once

#include "model/global_set.h"

/// The operations that bring the kernel's shaping state into line with the stored files.
namespace quenby {

/// Removes all shaping that `global` describes.
void clear_shaper(const GlobalSet& global);

/// `--load`: builds the shaping from the files. Class numbers that do not fit are handed out anew
/// and saved first. A disabled or empty configuration removes all shaping.
void load_config();

/// `--stop`: removes all shaping and keeps the files.
void stop_shaper();

/// `--clear`: removes all shaping and then the files.
void clear_config();

}  // namespace quenby
