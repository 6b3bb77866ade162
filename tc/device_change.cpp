#include "tc/device_change.h"

#include <unordered_map>
#include <utility>

namespace quenby {
namespace {

// Branches that wait to be made, by the handles of their classes.
class Waiting {
 public:
  explicit Waiting(std::vector<ClassBranch> branches) {
    for (ClassBranch& branch : branches) {
      places_[branch.htb.handle] = branches_.size();
      branches_.emplace_back(std::move(branch));
    }
  }

  // Nothing when there is none of this handle, or when it was taken already.
  std::optional<ClassBranch> take(std::uint32_t handle) {
    const auto place = places_.find(handle);
    if (place == places_.end()) return std::nullopt;
    return std::exchange(branches_[place->second], std::nullopt);
  }

  // All that nobody took.
  std::vector<ClassBranch> rest() {
    std::vector<ClassBranch> branches;
    for (std::optional<ClassBranch>& branch : branches_) {
      if (branch) branches.push_back(std::move(*branch));
    }
    return branches;
  }

 private:
  std::vector<std::optional<ClassBranch>> branches_;
  std::unordered_map<std::uint32_t, std::size_t> places_;
};

// Its rates do not matter any more.
RemovedBranch removed_branch(const Side& side, const TariffDirSettings& t,
                             const U32Inventory& standing) {
  ClassBranch branch = tariff_branch(side, as_given(t));
  return {branch.htb, branch.leaf, standing.of_class(branch.htb.handle)};
}

// What a change that was interrupted has left of a branch that is to be made: an address filter is
// added beside one that stands, not in its place.
std::optional<RemovedBranch> left_over(const ClassBranch& branch, const U32Inventory& standing) {
  std::vector<std::uint32_t> filters = standing.of_class(branch.htb.handle);
  if (filters.empty()) return std::nullopt;
  return RemovedBranch{branch.htb, branch.leaf, std::move(filters)};
}

}  // namespace

DeviceChange branch_changes(const Side& side, const ResolvedLine& line, bool has_tree,
                            const TariffDifference& tariffs, const U32Inventory& standing) {
  DeviceChange change;
  if (!side.by_mark() && !has_tree) return change;
  std::vector<ClassBranch> created;
  if (has_tree && !line.blocked()) {
    AddressTree known(side.scheme);
    for (const std::uint32_t handle : standing.handles()) known.note(handle);
    if (!side.by_mark() && !known.has_base()) change.base = address_base(side, line, tariffs.added);
    created = tariff_branches(side, {line, tariffs.added}, known);
  }
  Waiting waiting(std::move(created));
  for (const TariffSettings& tariff : tariffs.removed.tariffs()) {
    if (!tariffs.remove || !tariff.has_address(line.ipv6)) continue;
    RemovedBranch gone = removed_branch(side, tariff.direction(side.way), standing);
    std::optional<ClassBranch> next = waiting.take(gone.htb.handle);
    change.branches.push_back({std::move(gone), std::move(next)});
  }
  for (ClassBranch& branch : waiting.rest()) {
    std::optional<RemovedBranch> gone = left_over(branch, standing);
    change.branches.push_back({std::move(gone), std::move(branch)});
  }
  return change;
}

bool path_changes(bool any_added, bool any_removed, std::int64_t configured, std::int64_t previous,
                  std::int64_t next) {
  if (configured < previous) return any_removed && configured >= next;
  return any_added && configured < next;
}

DeviceChange device_change(const Side& side, const LineChange& line, bool has_tree,
                           const TariffDifference& tariffs, const U32Inventory& standing) {
  DeviceChange change = branch_changes(side, line.next, has_tree, tariffs, standing);
  if (!has_tree) return change;
  change.root = root_class(side.scheme, line.next.speed, line.burst);
  if (path_changes(!tariffs.added.empty(), !tariffs.removed.empty(), line.configured, line.previous,
                   line.next.speed))
    change.path = mark_path(side, line.next, true);
  return change;
}

}  // namespace quenby
