#include "tc/device_tree.h"

#include <algorithm>

#include "tc/redirection.h"

namespace quenby {
namespace {

// Whether packets without a mark have a class: on a line with a speed of its own.
bool has_default_class(const GlobalSet& configured, Direction way) {
  const std::int64_t speed = configured.global.direction(way).speed;
  return configured.has_global && speed != kNeverSet && speed != 0;
}

ClassBranch default_branch(const Side& side, unsigned number, const BandwidthSettings& def,
                           std::int64_t rate) {
  return {default_class(side.scheme, number, def.speed, rate),
          {},
          default_leaf(side.scheme, number, def)};
}

ClassBranch root_branch(const Side& side, const ResolvedSettings& s) {
  const GlobalDirSettings& line = s.line.global.direction(side.way);
  return {root_class(side.scheme, line, s.root_burst(side.way)), {}, {}};
}

std::vector<ClassBranch> mark_line(const Side& side, const ResolvedSettings& s) {
  std::vector<ClassBranch> line = {root_branch(side, s)};
  if (has_default_class(s.configured, side.way))
    line.push_back(default_branch(side, kDefaultClass, s.configured.global.direction(side.way), 0));
  const DefaultDirSettings& def = s.line.defaults.direction(side.way);
  if (s.line.has_default_tariff(side.way))
    line.push_back(default_branch(side, kDefaultTariffClass, def, def.rateBps()));
  return line;
}

// The default class takes the default tariff's place, in the download direction alone.
std::vector<ClassBranch> imq_line(const Side& side, const ResolvedSettings& s) {
  if (!wants_tree(side, s.line.global)) return {};
  std::vector<ClassBranch> line = {root_branch(side, s)};
  const DefaultDirSettings& def = s.line.defaults.direction(side.way);
  if (side.way == Direction::download && def.speed != kNeverSet)
    line.push_back(default_branch(side, kDefaultClass, def, 0));
  return line;
}

void add_mark_tree(const Side& side, const ResolvedSettings& s, DeviceTree& tree) {
  const bool upload = side.way == Direction::upload;
  if (upload) tree.ingress = ingress_qdisc();
  if (!wants_tree(side, s.line.global)) {
    const GlobalDirSettings& line = s.line.global.direction(side.way);
    if (upload && line.speed == 0) tree.root = plain_root(line);
    return;
  }
  tree.root = htb_root(has_default_class(s.configured, side.way));
  tree.line = mark_line(side, s);
  tree.path = mark_path(side, s.line.global, s.line.has_default || !s.tariffs.empty());
}

void add_imq_tree(const Side& side, const ResolvedSettings& s, DeviceTree& tree) {
  if (side.way == Direction::upload)
    tree.root = htb_root(s.line.defaults.upload.speed != kNeverSet);
  tree.line = imq_line(side, s);
  tree.base = address_base(side, s.line.global, s.tariffs);
}

}  // namespace

Side mark_side(Direction way) { return {HandleScheme::mark, way}; }

Side imq_side(Direction way) {
  return {way == Direction::download ? HandleScheme::imq_download : HandleScheme::imq_upload, way};
}

DeviceTree device_tree(const Side& side, const ResolvedSettings& settings) {
  DeviceTree tree;
  if (side.by_mark()) {
    add_mark_tree(side, settings, tree);
  } else {
    add_imq_tree(side, settings, tree);
  }
  AddressTree known(side.scheme);
  tree.tariffs = tariff_branches(side, settings.line.global, settings.tariffs, known);
  return tree;
}

bool wants_tree(const Side& side, const GlobalSettings& g) {
  const std::int64_t speed = g.direction(side.way).speed;
  return speed != kNeverSet && (speed != 0 || !side.by_mark());
}

MarkPath mark_path(const Side& side, const GlobalSettings& g, bool marked) {
  MarkPath path;
  const bool fed = side.way == Direction::download;
  if (fed) path.feeder = g.wan;
  if (!wants_tree(side, g)) return path;
  path.classifier = marked;
  if (fed) path.feed = redirect_command(g.wan, marked);
  return path;
}

std::optional<AddressBase> address_base(const Side& side, const GlobalSettings& g,
                                        const TariffSet& set) {
  const auto& list = set.tariffs();
  const bool any = std::any_of(list.begin(), list.end(),
                               [&side](const TariffSettings& t) { return t.takes_part(side.way); });
  if (g.direction(side.way).speed == kNeverSet && !any) return std::nullopt;
  return AddressBase{base_table(side.scheme), base_link(side.scheme)};
}

ClassBranch tariff_branch(const Side& side, const TariffDirSettings& t) {
  return {tariff_class(side.scheme, t), {}, tariff_leaf(side.scheme, t)};
}

std::vector<AddressFilters> address_matches(const Side& side, unsigned number,
                                            const std::vector<std::uint32_t>& addresses,
                                            AddressTree& known) {
  std::vector<AddressFilters> matches;
  if (side.by_mark()) return matches;
  matches.reserve(addresses.size());
  for (const std::uint32_t address : addresses) matches.push_back(known.add(address, number));
  return matches;
}

std::vector<ClassBranch> tariff_branches(const Side& side, const GlobalSettings& g,
                                         const TariffSet& set, AddressTree& known) {
  std::vector<ClassBranch> branches;
  if (!wants_tree(side, g)) return branches;
  for (const TariffSettings& tariff : set.tariffs()) {
    if (!tariff.takes_part(side.way)) continue;
    const TariffDirSettings& direction = tariff.direction(side.way);
    ClassBranch& branch = branches.emplace_back(tariff_branch(side, direction));
    branch.matches =
        address_matches(side, static_cast<unsigned>(direction.id), tariff.addresses, known);
  }
  return branches;
}

}  // namespace quenby
