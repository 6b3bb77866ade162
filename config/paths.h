#pragma once

#include <string>

namespace quenby {

inline constexpr const char* kConfigDirectory = "/config/tc";
inline constexpr const char* kTemporaryDirectory = "/tmp";
inline const std::string kGlobalName = "/tc_global.ini";
inline const std::string kTariffName = "/tc_tariff.ini";
inline const std::string kGlobalFile = kConfigDirectory + kGlobalName;
inline const std::string kTariffFile = kConfigDirectory + kTariffName;

/// Makes the directory of the stored files, with its parents, if it is missing, on the disk too.
/// Throws `boost::filesystem::filesystem_error`.
void make_config_directory(const std::string& folder);

}  // namespace quenby
