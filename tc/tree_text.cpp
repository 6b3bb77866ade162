#include "tc/tree_text.h"

#include <arpa/inet.h>

#include "tc/address_text.h"
#include "tc/handles.h"

namespace quenby {
namespace {

// Writes objects of one device, each line after the same words.
class Writer {
 public:
  Writer(std::ostream& out, const std::string& words) : out_(out), words_(words) {}

  void write(const Qdisc& qdisc) const;
  void write(const HtbClass& htb) const;
  void write(const U32Table& table) const;
  void write(const U32Filter& filter) const;
  void write(const AddressBase& base) const;
  void write(const ClassBranch& branch) const;
  void write(const RemovedBranch& branch) const;
  void write(const MarkPath& path) const;

 private:
  std::ostream& line(const char* object) const { return out_ << words_ << ' ' << object << ' '; }

  std::ostream& out_;
  std::string words_;
};

void Writer::write(const Qdisc& qdisc) const {
  line("qdisc") << handle_text(qdisc.handle) << " parent " << handle_text(qdisc.parent) << ' '
                << kind_name(qdisc.kind);
  if (qdisc.default_class != 0) out_ << " default " << hex(qdisc.default_class);
  if (qdisc.limit != 0) out_ << " limit " << qdisc.limit;
  if (qdisc.quantum != 0) out_ << " quantum " << qdisc.quantum;
  out_ << '\n';
}

void Writer::write(const HtbClass& htb) const {
  line("class") << handle_text(htb.handle) << " parent " << handle_text(htb.parent) << " rate "
                << htb.rate << " ceil " << htb.ceil << " burst " << htb.burst << " cburst "
                << htb.cburst << " quantum " << htb.quantum << '\n';
}

void Writer::write(const U32Table& table) const {
  line("table") << hex(table.id) << ": buckets " << table.buckets << '\n';
}

// A handle as tc prints it: table, bucket and node.
std::string u32_text(const U32Filter& filter) {
  return hex(filter.table) + ":" + hex(filter.bucket) + ":" +
         (filter.own_node ? hex(filter.node) : "");
}

void Writer::write(const U32Filter& filter) const {
  out_ << words_ << ' ' << match_text(filter) << '\n';
}

void Writer::write(const AddressBase& base) const {
  write(base.table);
  write(base.link);
}

void Writer::write(const ClassBranch& branch) const {
  write(branch.htb);
  for (const AddressFilters& match : branch.matches) {
    if (match.table) write(*match.table);
    if (match.link) write(*match.link);
    write(match.address);
  }
  if (branch.leaf) write(*branch.leaf);
}

void Writer::write(const RemovedBranch& branch) const {
  if (branch.leaf) line("qdisc") << handle_text(branch.leaf->handle) << '\n';
  for (const std::uint32_t handle : branch.filters) line("u32") << hex(handle) << '\n';
  line("class") << handle_text(branch.htb.handle) << '\n';
}

void Writer::write(const MarkPath& path) const {
  if (path.classifier) line("filter") << "parent " << handle_text(kHtbHandle) << " class by mark\n";
  if (path.ipv6) line("filter") << "parent " << handle_text(kHtbHandle) << " discovery direct\n";
  if (path.ipv6 && path.classifier)
    line("filter") << "parent " << handle_text(kHtbHandle) << " IPv6 class by mark\n";
  if (!path.feed.empty()) line("feed") << path.feed << '\n';
  if (!path.ip6_feed.empty()) line("feed") << path.ip6_feed << '\n';
}

}  // namespace

std::string match_text(const U32Filter& filter) {
  const std::string start = "u32 " + u32_text(filter) + " at " + std::to_string(filter.offset);
  if (filter.link_table != 0)
    return start + " link " + hex(filter.link_table) + ": by " + hex(filter.hash_mask);
  return start + " match " + address_text(htonl(filter.value)) + " class " +
         handle_text(filter.classid);
}

void write_tree(std::ostream& out, const std::string& device, const DeviceTree& tree) {
  const Writer writer(out, device);
  if (tree.root) writer.write(*tree.root);
  for (const ClassBranch& branch : tree.line) writer.write(branch);
  writer.write(tree.path);
  if (tree.ingress) writer.write(*tree.ingress);
  if (tree.base) writer.write(*tree.base);
  for (const ClassBranch& branch : tree.tariffs) writer.write(branch);
}

void write_change(std::ostream& out, const std::string& device, const DeviceChange& change) {
  const Writer gone(out, "delete " + device);
  const Writer made(out, "create " + device);
  const Writer changed(out, "replace " + device);
  if (change.root) changed.write(*change.root);
  if (change.base) made.write(*change.base);
  for (const BranchChange& branch : change.branches) {
    if (branch.removed) gone.write(*branch.removed);
    if (branch.created) made.write(*branch.created);
  }
  if (change.path) changed.write(*change.path);
}

}  // namespace quenby
