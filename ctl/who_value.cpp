#include "ctl/who_value.h"

#include <algorithm>
#include <map>

#include "model/refusal.h"
#include "tc/firewall_rules.h"
#include "tc/handles.h"
#include "tc/links.h"

namespace quenby {
namespace {

const PlannedClass* class_of_mark(const Shaping& shaping, std::uint32_t mark) {
  for (const ShapedClass& one : shaping.classes) {
    if (one.planned.mark == (mark & kMarkMask)) return &one.planned;
  }
  return nullptr;
}

const Ip6Address* ip6_of(const Who& who) { return std::get_if<Ip6Address>(&who.address); }

// The owners in the order of the classes, which is that of the names.
void find_tariffs(const Shaping& shaping, Who& who) {
  const auto holder = find_holder(shaping, who.address);
  if (!holder) return;
  if (const auto* const prefix = std::get_if<Ip6Prefix>(&*holder)) who.prefix = *prefix;
  for (const ShapedClass& one : shaping.classes) {
    const std::string& name = one.planned.name;
    const bool known = std::find(who.tariffs.begin(), who.tariffs.end(), name) != who.tariffs.end();
    if (has(one.planned, *holder) && !known) who.tariffs.push_back(name);
  }
  std::sort(who.tariffs.begin(), who.tariffs.end());
}

void find_owner(const Shaping& shaping, Who& who) {
  who.shaped = ip6_of(who) == nullptr || shaping.ipv6;
  if (!who.shaped) return;
  find_tariffs(shaping, who);
  for (const ShapedClass& one : shaping.classes) {
    const PlannedClass& planned = one.planned;
    const bool is_its = who.tariffs.empty() ? planned.number == kDefaultTariffClass
                                            : one.is_tariff() && planned.name == who.tariffs.back();
    if (!is_its) continue;
    who.classes.push_back(planned);
    if (planned.mark) who.mark = planned.mark;
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
  for (const auto& [mark, count] : counts) {
    const PlannedClass* const planned = class_of_mark(facts.shaping, mark);
    who.connections.push_back({mark, planned == nullptr ? "" : planned->name, count});
  }
}

bool is_class_in_the_way(const std::string& object, const PlannedClass& planned) {
  return object == "class " + handle_text(planned.htb.handle) ||
         object == "class " + handle_text(planned.htb.parent);
}

bool is_qdisc_in_the_way(const std::string& object, const PlannedClass& planned) {
  const std::uint32_t leaf = leaf_of(planned);
  for (const std::uint32_t handle : {leaf, kHtbHandle, kPlainRootHandle, kIngressHandle}) {
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

// Whether an object of a class's device is one that the address's packets meet.
bool is_in_the_way(const std::string& object, const PlannedClass& planned,
                   const std::string& address) {
  if (object.starts_with("class ")) return is_class_in_the_way(object, planned);
  if (object.starts_with("qdisc ")) return is_qdisc_in_the_way(object, planned);
  if (object.starts_with("u32 ")) return object.find(" match " + address + ' ') != object.npos;
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
  return std::any_of(who.classes.begin(), who.classes.end(), [&](const PlannedClass& planned) {
    return drift.place == planned.device && is_in_the_way(drift.object, planned, address);
  });
}

void find_problems(const WhoFacts& facts, Who& who) {
  for (const Drift& drift : facts.drift) {
    if (concerns(drift, who)) who.problems.push_back(to_text(drift));
  }
  for (const MarkedConnections& some : who.connections) {
    if (!who.mark || some.mark == *who.mark) continue;
    who.problems.push_back(std::to_string(some.count) +
                           (some.count == 1 ? " open connection has" : " open connections have") +
                           " the mark " + mark_text(some.mark, some.tariff));
  }
}

}  // namespace

std::string mark_text(std::uint32_t mark, const std::string& tariff) {
  return "0x" + hex(mark) + (tariff.empty() ? " of nobody" : " of " + quoted(tariff));
}

std::uint32_t leaf_of(const PlannedClass& planned) {
  HandleScheme scheme = HandleScheme::mark;
  if (!planned.mark) {
    scheme =
        planned.way == Direction::download ? HandleScheme::imq_download : HandleScheme::imq_upload;
  }
  return leaf_handle(scheme, planned.number);
}

Who who_has(const Address& address, const WhoFacts& facts) {
  Who who;
  who.address = address;
  find_owner(facts.shaping, who);
  if (!who.shaped) return who;
  look_into_kernel(facts, who);
  find_problems(facts, who);
  return who;
}

}  // namespace quenby
