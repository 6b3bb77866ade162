#include <array>
#include <nlohmann/json.hpp>
#include <ostream>

#include "ctl/direction_name.h"
#include "ctl/json.h"
#include "ctl/measurement.h"

// JSON and lines of commas. Both have the same fields per class.
namespace quenby {
namespace {

// In the order of the columns.
constexpr std::array<const char*, 14> kFields = {
    "direction",
    "device",
    "number",
    "name",
    "packets",
    "bytes",
    "drops",
    "overlimits",
    "backlog_bytes",
    "backlog_packets",
    "configured_guarantee",
    "configured_ceiling",
    "guarantee",
    "ceiling",
};

nlohmann::json nullable(const std::optional<std::int64_t>& rate) {
  return rate ? nlohmann::json(*rate) : nlohmann::json(nullptr);
}

void add_counters(const std::optional<ClassCounters>& counters, nlohmann::json& object) {
  const auto add = [&](const char* name, std::uint64_t ClassCounters::*member) {
    object[name] = counters ? nlohmann::json((*counters).*member) : nlohmann::json(nullptr);
  };
  add("packets", &ClassCounters::packets);
  add("bytes", &ClassCounters::bytes);
  add("drops", &ClassCounters::drops);
  add("overlimits", &ClassCounters::overlimits);
  add("backlog_bytes", &ClassCounters::backlog_bytes);
  add("backlog_packets", &ClassCounters::backlog_packets);
}

nlohmann::json json_of(const ShapedClass& shaped, const std::optional<ClassCounters>& counters) {
  const PlannedClass& planned = shaped.planned;
  nlohmann::json object = {{"direction", direction_name(planned.way)},
                           {"device", planned.device},
                           {"number", planned.number},
                           {"name", planned.name},
                           {"configured_guarantee", nullable(shaped.configured_guarantee)},
                           {"configured_ceiling", nullable(shaped.configured_ceiling)},
                           {"guarantee", planned.htb.rate},
                           {"ceiling", planned.htb.ceil}};
  add_counters(counters, object);
  return object;
}

nlohmann::json json_of(const ShapedDirection& direction) {
  return {{"direction", direction_name(direction.way)},
          {"device", direction.device},
          {"limit", direction.limit},
          {"guarantees", direction.guarantees}};
}

std::string quoted_field(const std::string& text) {
  if (text.find_first_of(",\"\r\n") == std::string::npos) return text;
  std::string quoted = "\"";
  for (const char c : text) {
    quoted += c;
    if (c == '"') quoted += c;
  }
  return quoted + '"';
}

std::string field_text(const nlohmann::json& value) {
  if (value.is_null()) return "";
  return value.is_string() ? quoted_field(value.get<std::string>()) : value.dump();
}

}  // namespace

void write_json(const Measurement& measurement, std::ostream& out) {
  const Shaping& shaping = measurement.shaping;
  nlohmann::json directions = nlohmann::json::array();
  for (const ShapedDirection& direction : shaping.directions)
    directions.push_back(json_of(direction));
  nlohmann::json classes = nlohmann::json::array();
  for (std::size_t i = 0; i < shaping.classes.size(); ++i)
    classes.push_back(json_of(shaping.classes[i], measurement.counters[i]));
  nlohmann::json object = {{"time", measurement.time},   {"version", measurement.version},
                           {"enabled", shaping.enabled}, {"tariffs", shaping.tariffs},
                           {"wan_present", nullptr},     {"differences", nullptr},
                           {"directions", directions},   {"classes", std::move(classes)}};
  if (shaping.has_wan) object["wan_present"] = *shaping.has_wan;
  if (measurement.differences) object["differences"] = *measurement.differences;
  out << printed(object);
}

void write_csv(const Measurement& measurement, std::ostream& out) {
  const char* before = "";
  for (const char* const field : kFields) {
    out << before << field;
    before = ",";
  }
  out << '\n';
  for (std::size_t i = 0; i < measurement.shaping.classes.size(); ++i) {
    const nlohmann::json object = json_of(measurement.shaping.classes[i], measurement.counters[i]);
    before = "";
    for (const char* const field : kFields) {
      out << before << field_text(object[field]);
      before = ",";
    }
    out << '\n';
  }
}

}  // namespace quenby
