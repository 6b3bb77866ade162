#pragma once

#include <string>

/// The operations that change one part of the configuration and of the kernel state together. Each
/// applies the change first and saves the files last, so that a failure leaves the files as they
/// were.
namespace quenby {

/// `--tariff-add`: adds the tariffs of the file at `path`, none of which may be stored already.
void add_tariffs(const std::string& path);

/// `--tariff-del`: deletes the tariff of this name, and with the last one the file.
void delete_tariff(const std::string& name);

/// `--tariff-update`: changes the tariffs of the file at `path`, which must all be stored already.
void update_tariff(const std::string& path);

/// `--tariffs-del`: deletes all tariffs; the line and the default tariff stay shaped.
void delete_tariffs();

/// `--global-update`: replaces the global configuration by the file at `path`.
void update_global(const std::string& path);

/// `--global-del`: deletes the global configuration; the tariffs stay, on the IMQ device.
void delete_global();

}  // namespace quenby
