#pragma once

/// The numbers of classes: the first three are the same in every tree, tariffs have theirs above.
namespace quenby {

inline constexpr unsigned kRootClass = 1;
inline constexpr unsigned kDefaultClass = 2;
inline constexpr unsigned kDefaultTariffClass = 3;

/// The numbers that the program hands out to tariffs.
inline constexpr int kFirstTariffNumber = int{kDefaultTariffClass} + 1;
inline constexpr int kLastTariffNumber = 15000;

/// The numbers that a tariff may hold in a file.
inline constexpr int kMinTariffId = 1;
inline constexpr int kMaxTariffId = 15999;

}  // namespace quenby
