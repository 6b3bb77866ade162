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

// A class that is not the tariff's own is named.
void write_class(std::ostream& out, const PlannedClass& taken, bool is_own) {
  out << taken.device << " class " << handle_text(taken.htb.handle)
      << (is_own ? "" : " of " + quoted(taken.name)) << ", guarantee " << exact_kbit(taken.htb.rate)
      << ", ceiling " << exact_kbit(taken.htb.ceil) << ", queue "
      << (taken.leaf.empty() ? "of the kernel" : taken.leaf + ' ' + handle_text(leaf_of(taken)));
}

void write(std::ostream& out, const PacketWay& way, const Who& who) {
  out << "  " << direction_name(way.way) << ": ";
  switch (way.passing) {
    case Passing::in_class:
      write_class(out, *way.taken, way.taken->number == who.number);
      break;
    case Passing::unshaped:
      out << "unshaped";
      break;
    case Passing::dropped:
      out << "dropped";
      break;
    case Passing::no_interface:
      out << "the WAN interface is missing";
      break;
  }
  out << '\n';
}

// The word of JSON.
const char* passing_name(Passing passing) {
  switch (passing) {
    case Passing::in_class:
      return "class";
    case Passing::unshaped:
      return "unshaped";
    case Passing::dropped:
      return "dropped";
    case Passing::no_interface:
      break;
  }
  return "no interface";
}

nlohmann::json json_of(const PacketWay& way) {
  const PlannedClass& taken = *way.taken;
  nlohmann::json object = {{"direction", direction_name(way.way)},
                           {"device", taken.device},
                           {"class", handle_text(taken.htb.handle)},
                           {"name", taken.name},
                           {"guarantee", taken.htb.rate},
                           {"ceiling", taken.htb.ceil},
                           {"leaf", nullptr}};
  if (!taken.leaf.empty()) object["leaf"] = taken.leaf;
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
  if (who.number) object["number"] = *who.number;
  if (who.mark) object["mark"] = *who.mark;
  if (who.set_mark) object["set_mark"] = *who.set_mark;
  for (const PacketWay& way : who.ways) {
    object[direction_name(way.way)] = passing_name(way.passing);
    if (way.taken) object["classes"].push_back(json_of(way));
  }
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
    out << "no tariff has it" << (who.in_default ? ", so it is in the default tariff" : "");
  } else {
    out << "tariff " << quoted(who.tariffs.back());
    if (who.number) out << ", number " << *who.number;
  }
  out << '\n';
  if (who.prefix) out << "  prefix: " << to_text(*who.prefix) << '\n';
  for (std::size_t i = 0; i + 1 < who.tariffs.size(); ++i)
    out << "  in the files tariff " << quoted(who.tariffs[i]) << " has it too\n";
  for (const PacketWay& way : who.ways) write(out, way, who);
  if (who.mark) {
    out << "  address set: "
        << (who.set_mark ? "mark 0x" + hex(*who.set_mark) : std::string("not in it")) << '\n';
  }
  for (const MarkedConnections& some : who.connections) {
    out << "  " << some.count << (some.count == 1 ? " open connection" : " open connections")
        << ": mark " << mark_text(some.mark, some.tariff) << '\n';
  }
  for (const std::string& problem : who.problems) out << "  problem: " << problem << '\n';
  for (const std::string& remedy : who.remedies) out << "  mended by: " << remedy << '\n';
  return out.str();
}

std::string json_text(const std::vector<Who>& list) {
  nlohmann::json addresses = nlohmann::json::array();
  for (const Who& who : list) addresses.push_back(json_of(who));
  return printed({{"addresses", addresses}});
}

}  // namespace quenby
