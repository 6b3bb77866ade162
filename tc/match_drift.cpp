#include "tc/match_drift.h"

#include <linux/if_ether.h>
#include <linux/pkt_cls.h>

#include <algorithm>
#include <map>
#include <set>
#include <tuple>

#include "tc/filters.h"
#include "tc/handles.h"
#include "tc/tree_text.h"

namespace quenby {
namespace {

struct Matches {
  std::vector<U32Table> tables;
  std::vector<U32Filter> filters;

  /// Without an address all packets go the same way, whether the first level is there or not.
  bool lead_somewhere() const {
    return std::any_of(filters.begin(), filters.end(),
                       [](const U32Filter& filter) { return filter.link_table == 0; });
  }
};

void collect(const AddressFilters& address, Matches& matches) {
  if (address.table) matches.tables.push_back(*address.table);
  if (address.link) matches.filters.push_back(*address.link);
  matches.filters.push_back(address.address);
}

Matches matches_of(const DeviceTree& tree) {
  Matches matches;
  if (tree.base) {
    matches.tables.push_back(tree.base->table);
    matches.filters.push_back(tree.base->link);
  }
  for (const ClassBranch& branch : tree.tariffs) {
    for (const AddressFilters& address : branch.matches) collect(address, matches);
  }
  return matches;
}

// All of a filter that packets notice.
auto key_of(const U32Filter& filter) {
  return std::make_tuple(filter.table, filter.bucket, filter.value, filter.mask, filter.offset,
                         filter.link_table, filter.hash_mask, filter.hash_offset, filter.classid);
}

// A change in place leaves the way to a table of which it has taken the last match.
bool leads_nowhere(const U32Filter& filter, const std::vector<const DeviceTree*>& trees) {
  return std::any_of(trees.begin(), trees.end(), [&filter](const DeviceTree* tree) {
    return tree->base && filter.table == tree->base->table.id &&
           filter.offset == tree->base->link.offset &&
           filter.link_table == filter.table + 1 + filter.bucket;
  });
}

Mending drop_of(const StandingFilter& filter) {
  return DropFilter{filter.kind, kHtbHandle, filter.handle, filter.prio, filter.protocol};
}

}  // namespace

void add_matches(const DeviceTree& tree, Mendings& mendings) {
  const Matches matches = matches_of(tree);
  for (const U32Table& table : matches.tables) mendings.push_back(MakeTable{table});
  for (const U32Filter& filter : matches.filters) mendings.push_back(MakeMatch{filter});
}

void match_drift(const std::string& place, const std::vector<const DeviceTree*>& trees,
                 const std::vector<StandingFilter>& standing, std::vector<Drift>& found) {
  using Key = decltype(key_of({}));
  std::multimap<Key, const StandingFilter*> filters;
  std::map<unsigned, Key> links;
  std::set<unsigned> tables;
  std::set<std::uint32_t> taken;
  for (const StandingFilter& filter : standing) {
    if (filter.protocol == ETH_P_IPV6) continue;
    if (filter.table) tables.insert(filter.table->id);
    if (!filter.match) continue;
    filters.emplace(key_of(*filter.match), &filter);
    taken.insert(filter.match->handle());
  }
  std::vector<Drift> missing;
  for (const DeviceTree* const tree : trees) {
    const Matches matches = matches_of(*tree);
    const bool matter = matches.lead_somewhere();
    for (const U32Table& table : matches.tables) {
      if (tables.count(table.id) != 0 || !matter) continue;
      missing.push_back({DriftKind::missing, place, "table " + hex(table.id) + ':', "",
                         Mendings{MakeTable{table}}, false});
    }
    for (U32Filter filter : matches.filters) {
      if (matter && filter.link_table != 0) links.emplace(filter.link_table, key_of(filter));
      const auto entry = filters.find(key_of(filter));
      if (entry != filters.end()) {
        filters.erase(entry);
        continue;
      }
      if (!matter) continue;
      filter.own_node = filter.own_node && taken.insert(filter.handle()).second;
      missing.push_back(
          {DriftKind::missing, place, match_text(filter), "", Mendings{MakeMatch{filter}}, false});
    }
  }
  for (const auto& [key, filter] : filters) {
    const auto link = links.find(filter->match->link_table);
    const bool wrong_way = link != links.end() && link->second != key;
    if (!wrong_way && leads_nowhere(*filter->match, trees)) continue;
    found.push_back({DriftKind::unwanted, place, match_text(*filter->match), "",
                     Mendings{drop_of(*filter)}, false});
  }
  found.insert(found.end(), missing.begin(), missing.end());
}

}  // namespace quenby
