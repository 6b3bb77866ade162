#include "ctl/who_value.h"

#include <algorithm>
#include <map>

#include "ctl/remedy.h"
#include "model/refusal.h"
#include "tc/firewall_rules.h"
#include "tc/handles.h"
#include "tc/links.h"

namespace quenby {
namespace {

const Ip6Address* ip6_of(const Who& who) { return std::get_if<Ip6Address>(&who.address); }

template <typename T>
bool lists(const std::vector<T>& list, const T& wanted) {
  return std::find(list.begin(), list.end(), wanted) != list.end();
}

std::optional<Ip6Prefix> longest_prefix(const TariffSet& tariffs, const Ip6Address& address) {
  const Ip6Prefix* longest = nullptr;
  for (const TariffSettings& tariff : tariffs.tariffs())
    longest = longest_of(tariff.prefixes, address, longest);
  if (longest == nullptr) return std::nullopt;
  return *longest;
}

bool has_it(const TariffSettings& tariff, const Who& who) {
  if (ip6_of(who) != nullptr) return who.prefix && lists(tariff.prefixes, *who.prefix);
  return lists(tariff.addresses, std::get<std::uint32_t>(who.address));
}

// Tariffs are in the order of their names, with or without a class.
void find_tariffs(const LineFacts& line, Who& who) {
  const TariffSet& tariffs = line.settings.tariffs;
  if (const auto* const address6 = ip6_of(who)) who.prefix = longest_prefix(tariffs, *address6);
  std::vector<const TariffSettings*> owners;
  for (const TariffSettings& tariff : tariffs.tariffs()) {
    if (has_it(tariff, who)) owners.push_back(&tariff);
  }
  if (owners.empty()) return;
  // The address set keeps the last entry, the tables of the IMQ device look at the first filter.
  if (!line.by_mark()) std::reverse(owners.begin(), owners.end());
  for (const TariffSettings* const owner : owners) who.tariffs.push_back(owner->name);
  who.number = static_cast<unsigned>(owners.back()->id);
}

bool is_in_default(const LineFacts& line, const PacketWay& way) {
  if (way.taken) return way.taken->name == DefaultSettings::printName();
  return way.passing == Passing::dropped && line.settings.direction(way.way).line.default_blocked();
}

void find_owner(const LineFacts& line, Who& who) {
  who.shaped = ip6_of(who) == nullptr || line.shaping.ipv6;
  if (who.shaped) find_tariffs(line, who);
  PacketOwner owner{who.shaped, std::nullopt, who.number};
  if (ip6_of(who) == nullptr) owner.address = std::get<std::uint32_t>(who.address);
  who.mark = packet_mark(line, owner);
  for (std::size_t i = 0; i < kDirections.size(); ++i)
    who.ways[i] = packet_way(line, owner, kDirections[i]);
  if (!who.tariffs.empty()) return;
  for (const PacketWay& way : who.ways) {
    if (!is_in_default(line, way)) continue;
    who.in_default = true;
    if (way.taken) who.number = way.taken->number;
  }
}

// The mark that the set of its family gives an address.
std::optional<std::uint32_t> mark_in(const std::vector<AddressSetEntry>& entries,
                                     std::uint32_t address) {
  std::optional<std::uint32_t> mark;
  for (const AddressSetEntry& entry : entries) {
    if (entry.address == address) mark = entry.mark;
  }
  return mark;
}

std::optional<std::uint32_t> mark_in(const std::vector<PrefixSetEntry>& entries,
                                     const Ip6Address& address) {
  const PrefixSetEntry* longest = nullptr;
  for (const PrefixSetEntry& entry : entries) {
    if (!holds(entry.address, address)) continue;
    if (longest == nullptr || entry.address.length > longest->address.length) longest = &entry;
  }
  if (longest == nullptr) return std::nullopt;
  return longest->mark;
}

using MarkCounts = std::map<std::uint32_t, std::size_t>;

template <typename Key>
MarkCounts counts_of(const std::vector<ConnectionOf<Key>>& connections, const Key& address) {
  MarkCounts counts;
  for (const ConnectionOf<Key>& connection : connections) {
    if (connection.source == address || connection.reply_source == address)
      ++counts[connection.mark & kMarkMask];
  }
  return counts;
}

// Whose a mark is: a tariff's with or without a class, or the default tariff's.
std::string name_of_mark(const LineFacts& line, std::uint32_t mark) {
  for (const TariffSettings& tariff : line.settings.tariffs.tariffs()) {
    if (class_mark(static_cast<std::uint64_t>(tariff.id)) == mark) return tariff.name;
  }
  const bool is_default =
      mark == class_mark(kDefaultTariffClass) && line.settings.configured.has_default;
  return is_default ? DefaultSettings::printName() : "";
}

void look_into_kernel(const WhoFacts& facts, Who& who) {
  MarkCounts counts;
  if (const auto* const address6 = ip6_of(who)) {
    who.set_mark = mark_in(facts.prefix_entries, *address6);
    counts = counts_of(facts.ip6_connections, *address6);
  } else {
    const auto address = std::get<std::uint32_t>(who.address);
    who.set_mark = mark_in(facts.entries, address);
    counts = counts_of(facts.connections, address);
  }
  for (const auto& [mark, count] : counts)
    who.connections.push_back({mark, name_of_mark(facts.line, mark), count});
}

bool is_class_in_the_way(const std::string& object, const PacketWay& way) {
  return way.taken && (object == "class " + handle_text(way.taken->htb.handle) ||
                       object == "class " + handle_text(way.taken->htb.parent));
}

bool is_qdisc_in_the_way(const std::string& object, const PacketWay& way) {
  if (way.taken && object == "qdisc " + handle_text(leaf_of(*way.taken))) return true;
  for (const std::uint32_t handle : {kHtbHandle, kPlainRootHandle, kIngressHandle}) {
    if (object == "qdisc " + handle_text(handle)) return true;
  }
  return false;
}

bool is_of_ipv6(const std::string& object) { return object.find("IPv6") != object.npos; }

// Whether there is one of each family, and this is the other one's.
bool is_of_other_family(const std::string& object, const Who& who) {
  if (ip6_of(who) == nullptr) return is_of_ipv6(object);
  return object == "filter by mark" ||
         object.starts_with("redirection to " + std::string(kIfbName));
}

// Whether a difference of a direction's device is one that the address's packets meet.
bool is_in_the_way(const Drift& drift, const PacketWay& way, const Who& who) {
  const std::string& object = drift.object;
  if (drift.place != way.device) return false;
  // What comes in of a family that is not shaped goes past all that is ours.
  if (!who.shaped && way.way == Direction::download) return false;
  if (object.starts_with("class ")) return is_class_in_the_way(object, way);
  if (object.starts_with("qdisc ")) return is_qdisc_in_the_way(object, way);
  if (object.starts_with("u32 "))
    return object.find(" match " + to_text(who.address) + ' ') != object.npos;
  return true;
}

// Whether an entry of the set of IPv6 decides about the address, or would.
bool decides(const std::string& object, const Who& who) {
  constexpr std::string_view kPrefix = "prefix ";
  if (object == kAddressSet6) return true;
  if (!object.starts_with(kPrefix)) return false;
  const auto prefix = parse_ip6_prefix(object.substr(kPrefix.size()));
  return prefix && holds(*prefix, *ip6_of(who)) &&
         (!who.prefix || prefix->length >= who.prefix->length);
}

bool concerns(const Drift& drift, const Who& who) {
  const std::string address = to_text(who.address);
  const bool ipv6 = ip6_of(who) != nullptr;
  if (drift.place == "set" && ipv6) return decides(drift.object, who);
  if (drift.place == "set")
    return drift.object == "address " + address || drift.object == kAddressSet;
  if (drift.place == "firewall") return drift.object.starts_with("IPv6 ") == ipv6;
  if (is_of_other_family(drift.object, who)) return false;
  return std::any_of(who.ways.begin(), who.ways.end(),
                     [&](const PacketWay& way) { return is_in_the_way(drift, way, who); });
}

void note_problem(Who& who, const std::string& problem, const std::string& remedy) {
  who.problems.push_back(problem);
  if (!lists(who.remedies, remedy)) who.remedies.push_back(remedy);
}

void find_problems(const WhoFacts& facts, Who& who) {
  for (const Drift& drift : facts.drift) {
    if (concerns(drift, who)) note_problem(who, to_text(drift), remedy_of(drift));
  }
  for (const MarkedConnections& some : who.connections) {
    if (!who.mark || some.mark == *who.mark) continue;
    note_problem(who,
                 std::to_string(some.count) +
                     (some.count == 1 ? " open connection has" : " open connections have") +
                     " the mark " + mark_text(some.mark, some.tariff),
                 kRepair);
  }
}

}  // namespace

std::string mark_text(std::uint32_t mark, const std::string& tariff) {
  return "0x" + hex(mark) + (tariff.empty() ? " of nobody" : " of " + quoted(tariff));
}

std::uint32_t leaf_of(const PlannedClass& planned) {
  HandleScheme scheme = HandleScheme::mark;
  if (planned.device == kImqName) {
    scheme =
        planned.way == Direction::download ? HandleScheme::imq_download : HandleScheme::imq_upload;
  }
  return leaf_handle(scheme, planned.number);
}

Who who_has(const Address& address, const WhoFacts& facts) {
  Who who;
  who.address = address;
  find_owner(facts.line, who);
  if (who.shaped) look_into_kernel(facts, who);
  find_problems(facts, who);
  return who;
}

}  // namespace quenby
