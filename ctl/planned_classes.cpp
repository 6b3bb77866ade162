#include "ctl/planned_classes.h"

#include <utility>

#include "tc/class_statistics.h"
#include "tc/qdisc.h"

namespace quenby {
namespace {

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

void each_planned_class(const ResolvedSettings& settings, const DesiredState& state,
                        const std::function<void(PlannedClass)>& take) {
  const TariffsByNumber tariffs = by_number(settings.tariffs);
  const bool by_mark = !settings.configured.global.wan.empty();
  for (const Direction way : kDirections) {
    const bool download = way == Direction::download;
    const std::string& device = download ? state.download_device : state.upload_device;
    for (const ClassBranch& branch : state.tree(way).line) {
      PlannedClass planned = planned_class(branch, way, device, by_mark);
      planned.name = line_class_name(planned.number, by_mark);
      take(std::move(planned));
    }
    for (const ClassBranch& branch : state.tree(way).tariffs) {
      PlannedClass planned = planned_class(branch, way, device, by_mark);
      const TariffSettings& tariff = *tariffs.at(planned.number);
      planned.name = tariff.name;
      planned.addresses = tariff.addresses;
      if (settings.configured.global.shapes_ipv6()) planned.prefixes = tariff.prefixes;
      take(std::move(planned));
    }
  }
}

std::vector<PlannedClass> planned_classes(const ResolvedSettings& settings,
                                          const DesiredState& state) {
  std::vector<PlannedClass> classes;
  classes.reserve(count_planned_classes(state));
  each_planned_class(settings, state,
                     [&classes](PlannedClass planned) { classes.push_back(std::move(planned)); });
  return classes;
}

std::size_t count_planned_classes(const DesiredState& state) {
  std::size_t count = 0;
  for (const Direction way : kDirections)
    count += state.tree(way).line.size() + state.tree(way).tariffs.size();
  return count;
}

}  // namespace quenby
