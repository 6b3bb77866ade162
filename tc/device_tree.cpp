#include "tc/device_tree.h"

#include "tc/redirection.h"

namespace quenby {
namespace {

// Whether packets without a mark have a class: on a line with a speed of its own.
bool has_default_class(const GlobalSet& configured, Direction way) {
  const std::int64_t speed = configured.global.direction(way).speed;
  return configured.has_global && speed != kNeverSet && speed != 0;
}

ClassBranch default_branch(const Side& side, unsigned number, const ClassRates& rates) {
  return {htb_class(class_minor(side.scheme, number), class_minor(side.scheme, kRootClass), rates),
          {},
          default_leaf(side.scheme, number, rates.ceiling)};
}

// It has no guarantee of its own.
ClassBranch unmarked_branch(const Side& side, std::int64_t speed) {
  return default_branch(side, kDefaultClass, {speed, 0, 0});
}

ClassBranch root_branch(const Side& side, const ResolvedDirection& d) {
  return {root_class(side.scheme, d.line.speed, largest_burst(d.tariffs)), {}, {}};
}

std::vector<ClassBranch> mark_line(const Side& side, const ResolvedSettings& s) {
  const ResolvedDirection& resolved = s.direction(side.way);
  std::vector<ClassBranch> line = {root_branch(side, resolved)};
  if (has_default_class(s.configured, side.way))
    line.push_back(unmarked_branch(side, s.configured.global.direction(side.way).speed));
  if (resolved.line.default_tariff)
    line.push_back(default_branch(side, kDefaultTariffClass, *resolved.line.default_tariff));
  return line;
}

// The default class takes the default tariff's place, in the download direction alone.
std::vector<ClassBranch> imq_line(const Side& side, const ResolvedDirection& d) {
  if (!wants_tree(side, d.line)) return {};
  std::vector<ClassBranch> line = {root_branch(side, d)};
  if (side.way == Direction::download && d.line.default_tariff)
    line.push_back(unmarked_branch(side, d.line.default_tariff->ceiling));
  return line;
}

void add_mark_tree(const Side& side, const ResolvedSettings& s, DeviceTree& tree) {
  const ResolvedLine& line = s.direction(side.way).line;
  const bool upload = side.way == Direction::upload;
  if (upload) tree.ingress = ingress_qdisc();
  if (!wants_tree(side, line)) {
    if (upload && line.blocked()) tree.root = plain_root(line.speed);
    if (tree.root && line.ipv6) tree.root = plain_root_for_discovery(line.speed);
    return;
  }
  tree.root = htb_root(has_default_class(s.configured, side.way));
  tree.line = mark_line(side, s);
  tree.path = mark_path(side, line, s.configured.has_default || !s.tariffs.empty());
}

void add_imq_tree(const Side& side, const ResolvedDirection& d, DeviceTree& tree) {
  if (side.way == Direction::upload) tree.root = htb_root(d.line.default_tariff.has_value());
  tree.line = imq_line(side, d);
  tree.base = address_base(side, d.line, d.tariffs);
}

}  // namespace

Side mark_side(Direction way) { return {HandleScheme::mark, way}; }

Side imq_side(Direction way) {
  return {way == Direction::download ? HandleScheme::imq_download : HandleScheme::imq_upload, way};
}

DeviceTree device_tree(const Side& side, const ResolvedSettings& settings) {
  const ResolvedDirection& direction = settings.direction(side.way);
  DeviceTree tree;
  if (side.by_mark()) {
    add_mark_tree(side, settings, tree);
  } else {
    add_imq_tree(side, direction, tree);
  }
  AddressTree known(side.scheme);
  tree.tariffs = tariff_branches(side, direction, known);
  return tree;
}

bool wants_tree(const Side& side, const ResolvedLine& line) {
  return line.speed != kNeverSet && (!line.blocked() || !side.by_mark());
}

MarkPath mark_path(const Side& side, const ResolvedLine& line, bool marked) {
  MarkPath path;
  const bool fed = side.way == Direction::download;
  if (fed) path.feeder = line.wan;
  if (!wants_tree(side, line)) return path;
  path.classifier = marked;
  path.ipv6 = line.ipv6;
  if (fed) path.feed = redirect_command(line.wan, marked);
  if (fed && line.ipv6) path.ip6_feed = ip6_redirect_commands(line.wan, marked);
  return path;
}

std::optional<AddressBase> address_base(const Side& side, const ResolvedLine& line,
                                        const std::vector<ResolvedTariff>& tariffs) {
  if (line.speed == kNeverSet && tariffs.empty()) return std::nullopt;
  return AddressBase{base_table(side.scheme), base_link(side.scheme)};
}

ClassBranch tariff_branch(const Side& side, const ResolvedTariff& t) {
  const unsigned parent = class_minor(side.scheme, kRootClass);
  return {htb_class(class_minor(side.scheme, t.number), parent, t.rates),
          {},
          tariff_leaf(side.scheme, t)};
}

std::vector<AddressFilters> address_matches(const Side& side, const ResolvedTariff& t,
                                            AddressTree& known) {
  std::vector<AddressFilters> matches;
  if (side.by_mark()) return matches;
  matches.reserve(t.addresses.size());
  for (const std::uint32_t address : t.addresses) matches.push_back(known.add(address, t.number));
  return matches;
}

std::vector<ClassBranch> tariff_branches(const Side& side, const ResolvedDirection& direction,
                                         AddressTree& known) {
  std::vector<ClassBranch> branches;
  if (!wants_tree(side, direction.line)) return branches;
  for (const ResolvedTariff& tariff : direction.tariffs) {
    ClassBranch& branch = branches.emplace_back(tariff_branch(side, tariff));
    branch.matches = address_matches(side, tariff, known);
  }
  return branches;
}

}  // namespace quenby
