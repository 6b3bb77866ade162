#include "tc/drift.h"

namespace quenby {

const char* drift_kind_name(DriftKind kind) {
  switch (kind) {
    case DriftKind::missing:
      return "missing";
    case DriftKind::different:
      return "different";
    case DriftKind::unwanted:
      return "unwanted";
  }
  return "";
}

std::string to_text(const Drift& drift) {
  std::string text = drift_kind_name(drift.kind);
  text += ": " + drift.place;
  if (!drift.object.empty()) text += ' ' + drift.object;
  // A handle without a minor ends with a colon of its own.
  if (!drift.detail.empty()) text += (text.back() == ':' ? " " : ": ") + drift.detail;
  return text;
}

}  // namespace quenby
