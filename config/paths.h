#pragma once

namespace quenby {

inline constexpr const char* kConfigParent = "/config";
inline constexpr const char* kConfigDirectory = "/config/tc";
inline constexpr const char* kGlobalFile = "/config/tc/tc_global.ini";
inline constexpr const char* kTariffFile = "/config/tc/tc_tariff.ini";

/// Makes the directory of the stored files, with its parents, if it is missing, on the disk
/// too. Throws
/// `boost::filesystem::filesystem_error`.
void make_config_directory();

}  // namespace quenby
