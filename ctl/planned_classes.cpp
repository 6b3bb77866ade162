#include "ctl/planned_classes.h"

#include "tc/qdisc.h"

namespace quenby {
namespace {

// The IMQ device's default class is the default tariff's.
std::string line_name(unsigned number, bool by_mark) {
  if (number == kRootClass) return "root";
  if (number == kDefaultClass && by_mark) return "system";
  return DefaultSettings::printName();
}

PlannedClass planned_class(const ClassBranch& branch, Direction way, const std::string& device,
                           bool by_mark) {
  const unsigned offset = !by_mark && way == Direction::upload ? kUploadClassOffset : 0;
  PlannedClass planned;
  planned.way = way;
  planned.device = device;
  planned.number = TC_H_MIN(branch.htb.handle) - offset;
  planned.htb = branch.htb;
  if (branch.leaf) planned.leaf = kind_name(branch.leaf->kind);
  if (by_mark && planned.number >= kDefaultTariffClass) planned.mark = class_mark(planned.number);
  return planned;
}

}  // namespace

TariffsByNumber by_number(const TariffSet& set) {
  TariffsByNumber tariffs;
  for (const TariffSettings& tariff : set.tariffs())
    tariffs[static_cast<unsigned>(tariff.id)] = &tariff;
  return tariffs;
}

std::vector<PlannedClass> planned_classes(const ResolvedSettings& settings,
                                          const DesiredState& state) {
  const TariffsByNumber tariffs = by_number(settings.tariffs);
  const bool by_mark = !settings.configured.global.wan.empty();
  std::vector<PlannedClass> classes;
  for (const Direction way : kDirections) {
    const bool download = way == Direction::download;
    const std::string& device = download ? state.download_device : state.upload_device;
    for (const ClassBranch& branch : state.tree(way).line) {
      classes.push_back(planned_class(branch, way, device, by_mark));
      classes.back().name = line_name(classes.back().number, by_mark);
    }
    for (const ClassBranch& branch : state.tree(way).tariffs) {
      classes.push_back(planned_class(branch, way, device, by_mark));
      const TariffSettings& tariff = *tariffs.at(classes.back().number);
      classes.back().name = tariff.name;
      classes.back().addresses = tariff.addresses;
      if (settings.configured.global.shapes_ipv6()) classes.back().prefixes = tariff.prefixes;
    }
  }
  return classes;
}

}  // namespace quenby
