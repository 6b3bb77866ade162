#include "ctl/plan_output.h"

#include <cstdio>
#include <nlohmann/json.hpp>
#include <sstream>

#include "ctl/direction_name.h"
#include "ctl/json.h"
#include "ctl/units.h"
#include "tc/address_text.h"
#include "tc/handles.h"

namespace quenby {
namespace {

const char* way_name(PlannedWay way) {
  switch (way) {
    case PlannedWay::nothing:
      return "nothing";
    case PlannedWay::in_place:
      return "in place";
    case PlannedWay::anew:
      return "anew";
    case PlannedWay::removal:
      return "removal";
  }
  return "";
}

std::string shown(const std::optional<std::string>& value) {
  return value ? quoted(*value) : "nothing";
}

void write(std::ostream& out, const SectionChange& change) {
  for (const ValueChange& value : change.values) {
    out << "change [" << change.name << "] " << value.key << ": " << shown(value.before) << " to "
        << shown(value.after) << '\n';
  }
}

void write(std::ostream& out, const PlannedClass& planned) {
  out << "class " << planned.number << ' ' << quoted(planned.name) << ' '
      << direction_name(planned.way) << " on " << planned.device << ": rate "
      << exact_kbit(planned.htb.rate) << ", ceiling " << exact_kbit(planned.htb.ceil) << ", burst "
      << planned.htb.burst << " bytes, queue "
      << (planned.leaf.empty() ? "of the kernel" : planned.leaf);
  if (planned.mark) out << ", mark 0x" << hex(*planned.mark);
  const char* before = ", addresses ";
  for (const std::uint32_t address : planned.addresses) {
    out << before << address_text(address);
    before = " ";
  }
  before = ", prefixes ";
  for (const Ip6Prefix& prefix : planned.prefixes) {
    out << before << to_text(prefix);
    before = " ";
  }
  out << '\n';
}

nlohmann::json json_of(const std::vector<SectionChange>& changes) {
  nlohmann::json list = nlohmann::json::array();
  for (const SectionChange& change : changes) {
    nlohmann::json values = nlohmann::json::array();
    for (const ValueChange& value : change.values) {
      nlohmann::json object = {{"key", value.key}, {"before", nullptr}, {"after", nullptr}};
      if (value.before) object["before"] = *value.before;
      if (value.after) object["after"] = *value.after;
      values.push_back(object);
    }
    list.push_back({{"name", change.name}, {"values", values}});
  }
  return list;
}

nlohmann::json json_of(const PlannedClass& planned) {
  nlohmann::json addresses = nlohmann::json::array();
  for (const std::uint32_t address : planned.addresses) addresses.push_back(address_text(address));
  nlohmann::json object = {{"direction", direction_name(planned.way)},
                           {"device", planned.device},
                           {"number", planned.number},
                           {"name", planned.name},
                           {"handle", planned.htb.handle},
                           {"rate", planned.htb.rate},
                           {"ceiling", planned.htb.ceil},
                           {"burst", planned.htb.burst},
                           {"ceiling_burst", planned.htb.cburst},
                           {"leaf", nullptr},
                           {"mark", nullptr},
                           {"addresses", addresses},
                           {"touched", planned.touched}};
  if (!planned.leaf.empty()) object["leaf"] = planned.leaf;
  if (planned.mark) object["mark"] = *planned.mark;
  for (const Ip6Prefix& prefix : planned.prefixes) object["prefixes"].push_back(to_text(prefix));
  return object;
}

}  // namespace

std::string to_text(const Plan& plan) {
  std::ostringstream out;
  out << way_name(plan.way) << ": " << plan.reason << '\n';
  for (const SectionChange& change : plan.line) write(out, change);
  for (const std::string& name : plan.removed) out << "remove [" << name << "]\n";
  for (const SectionChange& change : plan.changed) write(out, change);
  for (const std::string& name : plan.added) out << "add [" << name << "]\n";
  for (const PlannedClass& planned : plan.classes) {
    if (planned.touched) write(out, planned);
  }
  for (const std::string& command : plan.commands) out << "run " << command << '\n';
  return out.str();
}

std::string json_text(const Plan& plan) {
  nlohmann::json classes = nlohmann::json::array();
  for (const PlannedClass& planned : plan.classes) classes.push_back(json_of(planned));
  return printed(
      {{"way", way_name(plan.way)},
       {"reason", plan.reason},
       {"line", json_of(plan.line)},
       {"tariffs",
        {{"added", plan.added}, {"removed", plan.removed}, {"changed", json_of(plan.changed)}}},
       {"classes", classes},
       {"commands", plan.commands}});
}

}  // namespace quenby
