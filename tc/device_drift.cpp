#include "tc/device_drift.h"

#include <linux/if_ether.h>
#include <linux/pkt_sched.h>

#include <algorithm>
#include <iterator>
#include <map>
#include <unordered_map>
#include <unordered_set>
#include <utility>

#include "tc/classes.h"
#include "tc/filters.h"
#include "tc/handles.h"
#include "tc/match_drift.h"
#include "tc/qdiscs.h"

namespace quenby {
namespace {

std::string qdisc_name(std::uint32_t handle) { return "qdisc " + handle_text(handle); }
std::string class_name(std::uint32_t handle) { return "class " + handle_text(handle); }

TcObject wanted_object(const Device& device, const Qdisc& qdisc) {
  return *read_qdisc(nlmsg_hdr(qdisc_request(device, qdisc).get()));
}

TcObject wanted_object(const Device& device, const HtbClass& htb) {
  return *read_class(nlmsg_hdr(class_request(device, htb).get()));
}

// What libnl makes of values, once for all objects that share them: subscribers have the same few
// products, and most of a comparison would go into the rate tables of a class's request.
template <typename Values>
class WantedObjects {
 public:
  // Its handle and parent are 0.
  const TcObject& of(const Device& device, Values values) {
    values.handle = values.parent = 0;
    const auto [entry, is_new] = made_.try_emplace(values);
    if (is_new) entry->second = wanted_object(device, values);
    return entry->second;
  }

 private:
  std::map<Values, TcObject> made_;
};

void add_branch(Mendings& mendings, const ClassBranch& branch) {
  mendings.push_back(MakeClass{branch.htb});
  if (branch.leaf) mendings.push_back(MakeQdisc{*branch.leaf});
}

DropQdisc drop_of(const TcObject& qdisc) { return {qdisc.kind, qdisc.handle, qdisc.parent}; }

// A root that only this program makes: HTB of this handle, or the plain queue, which holds nothing
// or discovery.
bool is_our_root(const TcObject& root) {
  if (root.kind == kind_name(QdiscKind::htb)) return root.handle == kHtbHandle;
  if (root.kind != kind_name(QdiscKind::fq_codel) || root.handle != kPlainRootHandle) return false;
  for (const Property& property : root.properties) {
    if (std::string_view(property.name) == "limit")
      return property.value == 0 || property.value == std::uint64_t{kDiscoveryLimit};
  }
  return false;
}

bool is_discovery_filter(const StandingFilter& filter) {
  const U32Filter wanted = discovery_filter();
  return filter.prio == kDiscoveryPrio && filter.match && filter.match->value == wanted.value &&
         filter.match->mask == wanted.mask && filter.match->offset == wanted.offset &&
         filter.match->classid == wanted.classid && filter.match->link_table == 0;
}

class Comparison {
 public:
  Comparison(const WantedDevice& wanted, const StandingDevice& standing)
      : wanted_(wanted), standing_(standing) {}

  std::vector<Drift> run();

 private:
  Drift& note(DriftKind kind, std::string object, Cure cure, std::string detail = "") {
    return found_.emplace_back(Drift{kind, wanted_.device.name, std::move(object),
                                     std::move(detail), std::move(cure), false});
  }

  const Qdisc* wanted_root() const;
  bool wants_classifier() const;
  bool wants_ipv6() const;
  void compare_link();
  void compare_ingress();
  // Whether classes can be compared: there is a root of the right kind.
  bool compare_root();
  void build_tree(Mendings& mendings) const;
  void compare_classes();
  void compare_class(const ClassBranch& branch, const TcObject& standing);
  void compare_leaf(const ClassBranch& branch);
  void drop_unwanted_classes(const std::unordered_set<std::uint32_t>& known);
  void compare_classifiers();
  void compare_ip6_classifiers();
  void note_unwanted(const StandingFilter& filter);

  const WantedDevice& wanted_;
  const StandingDevice& standing_;
  std::unordered_map<std::uint32_t, const TcObject*> leaves_;
  WantedObjects<HtbClass> wanted_classes_;
  WantedObjects<Qdisc> wanted_leaves_;
  std::vector<Drift> found_;
};

const Qdisc* Comparison::wanted_root() const {
  for (const DeviceTree* const tree : wanted_.trees) {
    if (tree->root) return &*tree->root;
  }
  return nullptr;
}

bool Comparison::wants_classifier() const {
  for (const DeviceTree* const tree : wanted_.trees) {
    if (tree->path.classifier) return true;
  }
  return false;
}

bool Comparison::wants_ipv6() const {
  for (const DeviceTree* const tree : wanted_.trees) {
    if (tree->path.ipv6) return true;
  }
  return false;
}

std::vector<Drift> Comparison::run() {
  const bool can_be_made = *wanted_.kind != '\0' && wanted_root() != nullptr;
  if (standing_.ifindex == 0 && !can_be_made) return {};
  compare_link();
  if (compare_root()) {
    compare_classes();
    compare_classifiers();
    compare_ip6_classifiers();
    match_drift(wanted_.device.name, wanted_.trees, standing_.filters, found_);
  }
  compare_ingress();
  return std::move(found_);
}

void Comparison::compare_link() {
  if (*wanted_.kind == '\0' || wanted_root() == nullptr || standing_.up) return;
  if (standing_.ifindex == 0) {
    note(DriftKind::missing, "", Mendings{MakeDevice{wanted_.kind}});
  } else {
    note(DriftKind::different, "link", Mendings{RaiseDevice{}}, "down, not up");
  }
}

void Comparison::compare_ingress() {
  for (const DeviceTree* const tree : wanted_.trees) {
    if (!tree->ingress) continue;
    const TcObject* const found = standing_.qdisc_at(tree->ingress->parent);
    const std::string name = qdisc_name(tree->ingress->handle);
    if (found == nullptr) {
      note(DriftKind::missing, name, Mendings{MakeQdisc{*tree->ingress}});
    } else if (found->kind != kind_name(tree->ingress->kind)) {
      note(DriftKind::different, name, OtherIngress{found->kind}, found->kind + ", not ingress");
    }
  }
}

bool Comparison::compare_root() {
  const Qdisc* const root = wanted_root();
  const TcObject* const found = standing_.qdisc_at(TC_H_ROOT);
  if (root == nullptr) {
    if (found != nullptr && is_our_root(*found))
      note(DriftKind::unwanted, qdisc_name(found->handle), Mendings{DropRoot{}});
    return false;
  }
  if (found == nullptr) {
    // A device that is missing is named already.
    Drift& drift = standing_.ifindex != 0
                       ? note(DriftKind::missing, qdisc_name(root->handle), Mendings{})
                       : found_.back();
    build_tree(std::get<Mendings>(drift.cure));
    return false;
  }
  const TcObject object = wanted_object(wanted_.device, *root);
  std::string detail = differing(object, *found);
  const bool alike = found->kind == object.kind && found->handle == object.handle;
  if (alike && detail.empty()) return root->kind == QdiscKind::htb;
  if (!alike) detail = found->kind + ' ' + handle_text(found->handle) + ", not " + object.kind;
  Mendings mendings{DropRoot{}};
  build_tree(mendings);
  note(DriftKind::different, qdisc_name(root->handle), std::move(mendings), std::move(detail));
  return false;
}

void Comparison::build_tree(Mendings& mendings) const {
  mendings.push_back(MakeQdisc{*wanted_root()});
  for (const DeviceTree* const tree : wanted_.trees) {
    for (const ClassBranch& branch : tree->line) add_branch(mendings, branch);
    for (const ClassBranch& branch : tree->tariffs) add_branch(mendings, branch);
    add_matches(*tree, mendings);
  }
  if (wants_classifier()) mendings.push_back(MakeClassifier{});
  if (!wants_ipv6()) return;
  mendings.push_back(MakeDiscovery{});
  if (wants_classifier()) mendings.push_back(MakeClassifier{Family::ipv6});
}

void Comparison::compare_classes() {
  for (const TcObject& qdisc : standing_.qdiscs) {
    if (qdisc.handle != 0) leaves_[qdisc.parent] = &qdisc;
  }
  std::unordered_map<std::uint32_t, const TcObject*> standing;
  for (const TcObject& object : standing_.classes) standing[object.handle] = &object;
  std::unordered_set<std::uint32_t> known;
  const auto compare = [&](const ClassBranch& branch) {
    known.insert(branch.htb.handle);
    const auto found = standing.find(branch.htb.handle);
    if (found != standing.end()) return compare_class(branch, *found->second);
    Mendings mendings;
    add_branch(mendings, branch);
    note(DriftKind::missing, class_name(branch.htb.handle), std::move(mendings));
  };
  for (const DeviceTree* const tree : wanted_.trees) {
    for (const ClassBranch& branch : tree->line) compare(branch);
    for (const ClassBranch& branch : tree->tariffs) compare(branch);
  }
  drop_unwanted_classes(known);
}

void Comparison::compare_class(const ClassBranch& branch, const TcObject& standing) {
  // The kernel lists the root qdisc as the parent of a class under it by its own name.
  const bool at_root = branch.htb.parent == kHtbHandle && standing.parent == TC_H_ROOT;
  if (standing.parent != branch.htb.parent && !at_root) {
    Mendings mendings{DropClass{standing.handle, standing.parent}};
    add_branch(mendings, branch);
    note(DriftKind::different, class_name(branch.htb.handle), std::move(mendings),
         "parent " + handle_text(standing.parent) + ", not " + handle_text(branch.htb.parent));
    return;
  }
  const std::string detail = differing(wanted_classes_.of(wanted_.device, branch.htb), standing);
  if (!detail.empty()) {
    note(DriftKind::different, class_name(branch.htb.handle), Mendings{ChangeClass{branch.htb}},
         detail);
  }
  compare_leaf(branch);
}

void Comparison::compare_leaf(const ClassBranch& branch) {
  const auto entry = leaves_.find(branch.htb.handle);
  const TcObject* const found = entry == leaves_.end() ? nullptr : entry->second;
  if (!branch.leaf) {
    if (found != nullptr)
      note(DriftKind::unwanted, qdisc_name(found->handle), Mendings{drop_of(*found)});
    return;
  }
  const std::string name = qdisc_name(branch.leaf->handle);
  if (found == nullptr) {
    note(DriftKind::missing, name, Mendings{MakeQdisc{*branch.leaf}});
    return;
  }
  const TcObject& object = wanted_leaves_.of(wanted_.device, *branch.leaf);
  const bool alike = found->kind == object.kind && found->handle == branch.leaf->handle;
  const std::string detail =
      alike ? differing(object, *found)
            : found->kind + ' ' + handle_text(found->handle) + ", not " + object.kind;
  if (detail.empty()) return;
  Mendings mendings;
  if (!alike) mendings.push_back(drop_of(*found));
  mendings.push_back(MakeQdisc{*branch.leaf});
  note(DriftKind::different, name, std::move(mendings), detail);
}

void Comparison::drop_unwanted_classes(const std::unordered_set<std::uint32_t>& known) {
  for (auto object = standing_.classes.rbegin(); object != standing_.classes.rend(); ++object) {
    if (known.count(object->handle) != 0) continue;
    Drift& drift = note(DriftKind::unwanted, class_name(object->handle),
                        Mendings{DropClass{object->handle, object->parent}});
    // One under a tariff's class keeps that from having a queue.
    drift.last = known.count(object->parent) == 0 || TC_H_MIN(object->parent) == 1;
  }
}

void Comparison::compare_classifiers() {
  bool stands = false;
  for (const StandingFilter& filter : standing_.filters) {
    const bool ours =
        filter.by_mark && filter.prio == kClassifierPrio && filter.protocol == ETH_P_IP;
    // Those of addresses are compared on their own.
    if (filter.table || filter.match || filter.protocol == ETH_P_IPV6) continue;
    if (ours && wants_classifier() && !std::exchange(stands, true)) continue;
    note_unwanted(filter);
  }
  if (wants_classifier() && !stands)
    note(DriftKind::missing, "filter by mark", Mendings{MakeClassifier{}});
}

void Comparison::compare_ip6_classifiers() {
  const bool wants_marks = wants_ipv6() && wants_classifier();
  bool marks = false;
  bool discovery = false;
  for (const StandingFilter& filter : standing_.filters) {
    if (filter.protocol != ETH_P_IPV6 || filter.table) continue;
    const bool is_marks = filter.by_mark && filter.prio == kIp6ClassifierPrio;
    if (is_marks && wants_marks && !std::exchange(marks, true)) continue;
    const bool is_discovery = is_discovery_filter(filter);
    if (is_discovery && wants_ipv6() && !std::exchange(discovery, true)) continue;
    note_unwanted(filter);
  }
  if (wants_ipv6() && !discovery)
    note(DriftKind::missing, "filter of IPv6 discovery", Mendings{MakeDiscovery{}});
  if (wants_marks && !marks)
    note(DriftKind::missing, "IPv6 filter by mark", Mendings{MakeClassifier{Family::ipv6}});
}

void Comparison::note_unwanted(const StandingFilter& filter) {
  const std::string family = filter.protocol == ETH_P_IPV6 ? "IPv6 " : "";
  note(DriftKind::unwanted,
       family + "filter " + filter.kind + " of priority " + std::to_string(filter.prio),
       Mendings{DropFilter{filter.kind, kHtbHandle, filter.handle, filter.prio, filter.protocol}});
}

}  // namespace

std::vector<Drift> device_drift(const WantedDevice& wanted, const StandingDevice& standing) {
  return Comparison(wanted, standing).run();
}

namespace {

// One difference stands for all of IPv6, as the order of the filters counts.
void compare_ip6_redirections(const Device& feeder, const MarkPath& path, int target,
                              const IngressFilters& standing, std::vector<Drift>& found) {
  const std::vector<StandingIp6Redirection> ours = standing.ip6_for(target);
  std::vector<Ip6Redirection> wanted;
  if (!path.ip6_feed.empty()) wanted = ip6_redirections(path.classifier);
  const bool equal = std::equal(ours.begin(), ours.end(), wanted.begin(), wanted.end(),
                                [](const StandingIp6Redirection& one, const Ip6Redirection& other) {
                                  return one.target != 0 && one.filter == other;
                                });
  if (equal) return;
  Mendings mendings;
  for (const StandingIp6Redirection& one : ours) {
    mendings.push_back(
        DropFilter{"u32", kIngressHandle, one.handle, kIp6RedirectionPrio, ETH_P_IPV6});
  }
  if (!wanted.empty()) mendings.push_back(RunCommand{path.ip6_feed});
  Drift drift{DriftKind::different, feeder.name, "IPv6 redirection to ifb_ingr", "",
              std::move(mendings),  false};
  if (ours.empty()) drift.kind = DriftKind::missing;
  if (wanted.empty()) drift.kind = DriftKind::unwanted;
  if (drift.kind == DriftKind::different) drift.detail = "other filters, or in another order";
  found.push_back(std::move(drift));
}

}  // namespace

std::vector<Drift> redirection_drift(const Device& feeder, const MarkPath& path, int target,
                                     const IngressFilters& standing) {
  std::vector<Drift> found;
  const auto note = [&](DriftKind kind, Mendings mendings, const char* detail = "") -> Drift& {
    return found.emplace_back(
        Drift{kind, feeder.name, "redirection to ifb_ingr", detail, std::move(mendings), false});
  };
  const auto drop = [](const Redirection& redirection) {
    return DropFilter{"u32", kIngressHandle, redirection.handle, kRedirectionPrio, ETH_P_IP};
  };
  bool stands = false;
  for (const Redirection& redirection : standing.redirections) {
    if (redirection.target == 0) {
      note(DriftKind::unwanted, {drop(redirection)}).object =
          "redirection to a device that is gone";
    } else if (redirection.target != target) {
      continue;
    } else if (path.feed.empty() || std::exchange(stands, true)) {
      note(DriftKind::unwanted, {drop(redirection)});
    } else if (redirection.restores_mark != path.classifier) {
      note(DriftKind::different, {drop(redirection), RunCommand{path.feed}},
           path.classifier ? "without marks, not with them" : "with marks, not without them");
    }
  }
  if (!path.feed.empty() && !stands) note(DriftKind::missing, {RunCommand{path.feed}});
  compare_ip6_redirections(feeder, path, target, standing, found);
  return found;
}

}  // namespace quenby
