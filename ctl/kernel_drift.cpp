#include "ctl/kernel_drift.h"

#include <nlohmann/json.hpp>

#include "config/paths.h"
#include "ctl/json.h"
#include "ctl/plan_facts.h"
#include "ctl/readable.h"
#include "model/rate_resolution.h"
#include "shaper/session.h"

namespace quenby {
namespace {

// Where nothing is shaped, nothing but the devices' names.
DesiredState names_of(const DesiredState& state) {
  DesiredState names;
  names.upload_device = state.upload_device;
  names.download_device = state.download_device;
  return names;
}

nlohmann::json json_of(const std::vector<Drift>& drift) {
  nlohmann::json list = nlohmann::json::array();
  for (const Drift& one : drift) {
    list.push_back({{"finding", drift_kind_name(one.kind)},
                    {"place", one.place},
                    {"object", one.object},
                    {"detail", one.detail}});
  }
  return list;
}

}  // namespace

Asked read_asked() {
  for (const std::string& stored : {kGlobalFile, kTariffFile}) expect_readable(stored);
  read_psched_hz();
  Asked asked;
  asked.edit = edit_of_load();
  const TariffSet& tariffs = asked.edit.tariffs;
  const PlanFacts facts = facts_for(asked.edit);
  asked.settings = resolve(asked.edit.line, tariffs, facts.link_speed);
  asked.router = facts.router;
  asked.wanted.wan = asked.edit.line.global.wan;
  asked.wanted.shaped = is_shaped(asked.edit.line, tariffs);
  asked.wanted.state = desired_state(asked.settings, facts.router);
  if (!asked.wanted.shaped) asked.wanted.state = names_of(asked.wanted.state);
  return asked;
}

std::vector<Drift> all_drift(const Asked& asked, const StateDrift& drift) {
  std::vector<Drift> list = drift.all();
  if (asked.is_renumbered()) {
    list.insert(list.begin(),
                {DriftKind::different, kTariffFile, "class numbers",
                 "they do not fit, and are handed out again", MendedOtherwise{}, false});
  }
  return list;
}

std::vector<Drift> drift_from_files() {
  const Asked asked = read_asked();
  return all_drift(asked, find_drift(open_session(), asked.wanted));
}

std::string json_text(const std::vector<Drift>& drift) {
  return printed({{"differences", json_of(drift)}});
}

std::string json_text(const std::vector<Drift>& drift, const std::vector<Drift>& mended) {
  return printed({{"differences", json_of(drift)}, {"mended", json_of(mended)}});
}

}  // namespace quenby
