#include "ctl/shaping.h"

#include "config/paths.h"
#include "ctl/plan_facts.h"
#include "ctl/readable.h"
#include "model/rate_resolution.h"
#include "shaper/session.h"

namespace quenby {
namespace {

std::optional<std::int64_t> if_given(std::int64_t rate) {
  if (rate < 0) return std::nullopt;
  return rate;
}

// Fills in what the settings of one direction say. A record without a speed has no guarantee.
void configure(const BandwidthSettings& settings, ShapedClass& shaped) {
  shaped.configured_ceiling = if_given(settings.speed);
  if (shaped.configured_ceiling) shaped.configured_guarantee = if_given(settings.rateBps());
}

void configure_line(const GlobalSet& line, ShapedClass& shaped) {
  const Direction way = shaped.planned.way;
  if (shaped.planned.name == DefaultSettings::printName())
    return configure(line.defaults.direction(way), shaped);
  configure(line.global.direction(way), shaped);
  // What is not classified may use the line but has none of it for itself.
  if (!shaped.is_root()) shaped.configured_guarantee = std::nullopt;
}

std::vector<ShapedClass> shaped_classes(const Edit& edit, const ResolvedSettings& settings,
                                        const DesiredState& state) {
  const TariffsByNumber tariffs = by_number(edit.tariffs);
  std::vector<ShapedClass> classes;
  classes.reserve(count_planned_classes(state));
  each_planned_class(settings, state, [&](PlannedClass planned) {
    ShapedClass shaped{std::move(planned), {}, {}};
    if (shaped.is_tariff()) {
      configure(tariffs.at(shaped.planned.number)->direction(shaped.planned.way), shaped);
    } else {
      configure_line(edit.line, shaped);
    }
    classes.push_back(std::move(shaped));
  });
  return classes;
}

}  // namespace

Shaping shaping_of(const Edit& edit, const ResolvedSettings& settings, const DesiredState& state,
                   const RouterFacts& router) {
  Shaping shaping;
  shaping.enabled = is_shaped(edit.line, edit.tariffs);
  shaping.ipv6 = edit.line.global.shapes_ipv6();
  if (!edit.line.global.wan.empty()) shaping.has_wan = router.has_wan;
  shaping.tariffs = edit.tariffs.tariffs().size();
  const RateSummary& sums = settings.summary;
  shaping.directions = {
      {{Direction::upload, state.upload_device, sums.up_limit, sums.up_sum},
       {Direction::download, state.download_device, sums.down_limit, sums.down_sum}}};
  if (shaping.enabled) shaping.classes = shaped_classes(edit, settings, state);
  return shaping;
}

Shaping shaping_of(const Edit& edit, const PlanFacts& facts) {
  const TariffSet& tariffs = edit.tariffs;
  const ResolvedSettings settings = resolve(edit.line, tariffs, facts.link_speed);
  return shaping_of(edit, settings, desired_state(settings, facts.router), facts.router);
}

Shaping read_shaping() {
  for (const std::string& stored : {kGlobalFile, kTariffFile}) expect_readable(stored);
  const Edit edit = edit_of_load();
  read_psched_hz();
  return shaping_of(edit, facts_for(edit));
}

}  // namespace quenby
