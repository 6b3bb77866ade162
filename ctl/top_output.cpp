#include "ctl/top_output.h"

#include <nlohmann/json.hpp>

#include "ctl/direction_name.h"
#include "ctl/json.h"

namespace quenby {
namespace {

nlohmann::json json_of(const TopRow& row) {
  const PlannedClass& planned = row.shaped->planned;
  const Activity& activity = *row.activity;
  return {{"direction", direction_name(planned.way)},
          {"device", planned.device},
          {"number", planned.number},
          {"name", planned.name},
          {"present", activity.present},
          {"bytes_per_second", activity.bytes_per_second},
          {"packets_per_second", activity.packets_per_second},
          {"drops_per_second", activity.drops_per_second},
          {"ceiling", planned.htb.ceil},
          {"share", row.share()},
          {"packets", activity.packets},
          {"drops", activity.drops},
          {"backlog_bytes", activity.backlog_bytes}};
}

}  // namespace

std::string json_text(const Shaping& shaping, const TopView& view, double seconds) {
  nlohmann::json lines = nlohmann::json::array();
  for (const TopTotal& total : view.totals) {
    if (total.line) lines.push_back(json_of(*total.line));
  }
  nlohmann::json classes = nlohmann::json::array();
  for (const TopRow& row : view.rows) classes.push_back(json_of(row));
  return printed({{"enabled", shaping.enabled},
                  {"seconds", seconds},
                  {"lines", std::move(lines)},
                  {"classes", std::move(classes)}});
}

}  // namespace quenby
