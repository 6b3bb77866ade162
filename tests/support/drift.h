#pragma once

#include <gtest/gtest.h>
#include <string>
#include <variant>
#include <vector>

#include "tc/drift.h"

namespace quenby::test {

/// The requests that mend a difference. Throws where something else does, or is in the way.
inline const Mendings& mendings_of(const Drift& drift) { return std::get<Mendings>(drift.cure); }

/// A line for a difference, of which it has to be known what mends it.
inline std::string line_of(const Drift& drift) {
  const auto* const mendings = std::get_if<Mendings>(&drift.cure);
  EXPECT_TRUE(mendings == nullptr || !mendings->empty()) << to_text(drift);
  return to_text(drift) + '\n';
}

/// The same of several.
inline std::string lines_of(const std::vector<Drift>& found) {
  std::string text;
  for (const Drift& one : found) text += line_of(one);
  return text;
}

/// Whether a repair mends all of them without a request to a device.
inline bool are_mended_otherwise(const std::vector<Drift>& found) {
  for (const Drift& one : found) {
    if (!std::holds_alternative<MendedOtherwise>(one.cure)) return false;
  }
  return true;
}

}  // namespace quenby::test
