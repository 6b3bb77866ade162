#include "tc/tree_walk.h"

#include "tc/classes.h"
#include "tc/filters.h"
#include "tc/qdiscs.h"

namespace quenby {

void install_line(const Device& device, const DeviceTree& tree) {
  if (tree.root) add_qdisc(device, *tree.root);
  for (const ClassBranch& branch : tree.line) install_branch(device, branch, false);
}

void install_tariffs(const Device& device, const DeviceTree& tree) {
  if (tree.base) install_base(device, *tree.base);
  for (const ClassBranch& branch : tree.tariffs) install_branch(device, branch, false);
}

void install_base(const Device& device, const AddressBase& base) {
  add_u32_table(device, base.table, kClassifierPrio, false);
  add_u32_filter(device, base.link, kClassifierPrio);
}

void install_branch(const Device& device, const ClassBranch& branch, bool tolerate) {
  add_class(device, branch.htb);
  for (const AddressFilters& match : branch.matches) {
    if (match.table) add_u32_table(device, *match.table, kClassifierPrio, tolerate);
    if (match.link) add_u32_filter(device, *match.link, kClassifierPrio);
    add_u32_filter(device, match.address, kClassifierPrio);
  }
  if (branch.leaf) add_qdisc(device, *branch.leaf);
}

void remove_branch(const Device& device, const RemovedBranch& branch) {
  if (branch.leaf) delete_qdisc(device, *branch.leaf);
  for (const std::uint32_t handle : branch.filters)
    delete_u32_filter(device, kHtbHandle, handle, kClassifierPrio);
  delete_class(device, branch.htb);
}

void apply_change(const Device& device, const DeviceChange& change) {
  if (change.root) replace_class(device, *change.root);
  if (change.base) install_base(device, *change.base);
  for (const BranchChange& branch : change.branches) {
    if (branch.removed) remove_branch(device, *branch.removed);
    if (branch.created) install_branch(device, *branch.created, true);
  }
}

bool tree_stands(const Device& device, const DeviceTree& tree) {
  if (tree.root && !qdisc_stands(device, *tree.root)) return false;
  const std::vector<ClassBranch>& last = tree.tariffs.empty() ? tree.line : tree.tariffs;
  return last.empty() || class_stands(device, last.back().htb);
}

}  // namespace quenby
