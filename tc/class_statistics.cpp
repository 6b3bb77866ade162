#include "tc/class_statistics.h"

#include <array>

#include "model/default_settings.h"
#include "tc/handles.h"

namespace quenby {
namespace {

constexpr std::array<rtnl_tc_stat, 6> kCounters = {
    RTNL_TC_PACKETS,  RTNL_TC_BYTES, RTNL_TC_RATE_BPS,
    RTNL_TC_RATE_PPS, RTNL_TC_DROPS, RTNL_TC_OVERLIMITS,
};

}  // namespace

std::string line_class_name(unsigned number, bool by_mark) {
  if (number == kRootClass) return "root";
  if (number == kDefaultClass && by_mark) return "system";
  const bool is_default_tariff = number == (by_mark ? kDefaultTariffClass : kDefaultClass);
  return is_default_tariff ? DefaultSettings::printName() : "";
}

std::string class_name(unsigned number, const TariffConfig& cfg) {
  if (number == kRootClass) return line_class_name(number, true);
  TariffSettings tariff;
  return cfg.get(static_cast<int>(number), tariff) ? tariff.name : std::to_string(number);
}

std::string mark_class_name(unsigned number, const TariffConfig& cfg) {
  const std::string name = line_class_name(number, true);
  return name.empty() ? class_name(number, cfg) : name;
}

std::string imq_class_name(std::uint32_t handle, std::uint32_t parent, const TariffConfig& cfg) {
  // Leaf qdiscs list flows as classes of their own majors.
  if (TC_H_MAJ(handle) != kHtbHandle) return "";
  const unsigned minor = TC_H_MIN(handle);
  if (minor == kDefaultClass) return line_class_name(minor, false);
  if ((parent & ~kUploadClassOffset) != class_handle(kRootClass)) return "";
  if (minor <= kUploadClassOffset) return "download " + class_name(minor, cfg);
  return "upload " + class_name(minor - kUploadClassOffset, cfg);
}

void print_class(std::ostream& out, const std::string& name, rtnl_class* object) {
  out << name;
  for (const rtnl_tc_stat counter : kCounters)
    out << ',' << rtnl_tc_get_stat(TC_CAST(object), counter);
  out << '\n';
}

}  // namespace quenby
