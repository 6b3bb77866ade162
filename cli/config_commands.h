#pragma once

#include <string>

#include "model/global_set.h"
#include "model/tariff_config.h"
#include "model/tariff_set.h"

/// The operations that bring the kernel's shaping state into line with the stored files.
namespace quenby {

/// Removes all shaping that `global` describes.
void clear_shaper(const GlobalSet& global);

/// Builds everything if `global` is enabled and there is something to shape. False when not.
bool create_shaper(const GlobalSet& global, const TariffSet& tariffs);

/// Says on standard error, once a run, when a line is asked to shape IPv6 and has no WAN interface.
void warn_of_unshaped_ipv6(const GlobalSet& global);

/// `--load`: builds the shaping from the files. Class numbers that do not fit are handed out again
/// and saved first. A disabled or empty configuration removes all shaping.
void load_config();

/// `--reload`: removes all shaping, hands out all class numbers again, builds the shaping from the
/// files and saves the tariffs.
void reload_config();

/// `--restore-if-cfg`: reloads if `interface` is the configured WAN interface.
void restore_config(const std::string& interface);

/// `--update`: makes the tariffs of the file at `path` the whole list, touching only what differs.
void update_config(const std::string& path);

/// `--stop`: removes all shaping and keeps the files.
void stop_shaper();

/// `--clear`: removes all shaping and then the files.
void clear_config();

/// `--stat`: prints the class counters. Nothing without tariffs.
void print_statistics();

}  // namespace quenby
