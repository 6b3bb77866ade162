#include <nlohmann/json.hpp>
#include <sstream>

#include "ctl/direction_name.h"
#include "ctl/json.h"
#include "ctl/units.h"
#include "ctl/who_value.h"
#include "model/refusal.h"
#include "tc/handles.h"

namespace quenby {
namespace {

void write(std::ostream& out, const PlannedClass& planned) {
  out << "  " << direction_name(planned.way) << ": " << planned.device << " class "
      << handle_text(planned.htb.handle) << ", guarantee " << exact_kbit(planned.htb.rate)
      << ", ceiling " << exact_kbit(planned.htb.ceil) << ", queue "
      << (planned.leaf.empty() ? "of the kernel"
                               : planned.leaf + ' ' + handle_text(leaf_of(planned)))
      << '\n';
}

nlohmann::json json_of(const PlannedClass& planned) {
  nlohmann::json object = {{"direction", direction_name(planned.way)},
                           {"device", planned.device},
                           {"class", handle_text(planned.htb.handle)},
                           {"guarantee", planned.htb.rate},
                           {"ceiling", planned.htb.ceil},
                           {"leaf", nullptr}};
  if (!planned.leaf.empty()) object["leaf"] = planned.leaf;
  return object;
}

nlohmann::json json_of(const Who& who) {
  nlohmann::json object = {{"address", to_text(who.address)},
                           {"tariffs", who.tariffs},
                           {"number", nullptr},
                           {"mark", nullptr},
                           {"set_mark", nullptr},
                           {"classes", nlohmann::json::array()},
                           {"connections", nlohmann::json::array()},
                           {"problems", who.problems}};
  if (std::holds_alternative<Ip6Address>(who.address)) object["prefix"] = nullptr;
  if (who.prefix) object["prefix"] = to_text(*who.prefix);
  if (!who.classes.empty()) object["number"] = who.classes.front().number;
  if (who.mark) object["mark"] = *who.mark;
  if (who.set_mark) object["set_mark"] = *who.set_mark;
  for (const PlannedClass& planned : who.classes) object["classes"].push_back(json_of(planned));
  for (const MarkedConnections& some : who.connections) {
    object["connections"].push_back(
        {{"mark", some.mark}, {"tariff", some.tariff}, {"count", some.count}});
  }
  return object;
}

}  // namespace

std::string to_text(const Who& who) {
  std::ostringstream out;
  out << to_text(who.address) << ": ";
  if (!who.shaped) {
    out << "IPv6 is not shaped";
  } else if (who.tariffs.empty()) {
    out << "no tariff has it" << (who.classes.empty() ? "" : ", so it is in the default tariff");
  } else {
    out << "tariff " << quoted(who.tariffs.back());
    if (!who.classes.empty()) out << ", number " << who.classes.front().number;
  }
  out << '\n';
  if (who.prefix) out << "  prefix: " << to_text(*who.prefix) << '\n';
  for (std::size_t i = 0; i + 1 < who.tariffs.size(); ++i)
    out << "  in the files tariff " << quoted(who.tariffs[i]) << " has it too\n";
  if (who.classes.empty()) out << "  no class\n";
  for (const PlannedClass& planned : who.classes) write(out, planned);
  if (who.mark) {
    out << "  address set: "
        << (who.set_mark ? "mark 0x" + hex(*who.set_mark) : std::string("not in it")) << '\n';
  }
  for (const MarkedConnections& some : who.connections) {
    out << "  " << some.count << (some.count == 1 ? " open connection" : " open connections")
        << ": mark " << mark_text(some.mark, some.tariff) << '\n';
  }
  for (const std::string& problem : who.problems) out << "  problem: " << problem << '\n';
  if (!who.problems.empty()) out << "  mended by: quenbyctl repair\n";
  return out.str();
}

std::string json_text(const std::vector<Who>& list) {
  nlohmann::json addresses = nlohmann::json::array();
  for (const Who& who : list) addresses.push_back(json_of(who));
  return printed({{"addresses", addresses}});
}

}  // namespace quenby
