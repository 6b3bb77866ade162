#include "tc/address_tree.h"

#include <arpa/inet.h>
#include <linux/pkt_cls.h>

namespace quenby {
namespace {

constexpr unsigned kBaseBuckets = 16;
constexpr unsigned kLeafBuckets = 256;
constexpr std::uint32_t kThirdOctet = 0xff00;
constexpr std::uint32_t kLastOctet = 0xff;
constexpr std::uint32_t kWholeAddress = 0xffffffff;

unsigned base_id(HandleScheme scheme) { return scheme == HandleScheme::imq_upload ? 19 : 2; }

}  // namespace

int address_offset(HandleScheme scheme) { return scheme == HandleScheme::imq_upload ? 12 : 16; }

U32Table base_table(HandleScheme scheme) { return {base_id(scheme), kBaseBuckets}; }

U32Filter base_link(HandleScheme scheme) {
  U32Filter link;
  link.offset = address_offset(scheme);
  link.node = scheme == HandleScheme::imq_upload ? 2 : 1;
  link.link_table = base_id(scheme);
  link.hash_mask = kThirdOctet;
  link.hash_offset = static_cast<std::uint32_t>(link.offset);
  return link;
}

void AddressTree::note(std::uint32_t handle) {
  const unsigned table = TC_U32_USERHTID(handle);
  const unsigned bucket = TC_U32_HASH(handle);
  const bool base = table == base_id(scheme_);
  has_base_ = has_base_ || base;
  // A handle with neither bucket nor node is the table itself.
  if (TC_U32_KEY(handle) == 0) return;
  // Whatever node the kernel gave a link, its bucket has one.
  if (base) used_[static_cast<int>(bucket)] = true;
  if (TC_U32_NODE(handle) == 0) taken_.insert(handle);
}

AddressFilters AddressTree::add(std::uint32_t address, unsigned number) {
  const std::uint32_t host = ntohl(address);
  const unsigned bucket = host >> 8 & (kBaseBuckets - 1);
  const unsigned table = base_id(scheme_) + 1 + bucket;
  const int offset = address_offset(scheme_);

  AddressFilters filters;
  bool& used = used_[static_cast<int>(bucket)];
  if (!used) {
    used = true;
    filters.table = U32Table{table, kLeafBuckets};
    U32Filter& link = filters.link.emplace();
    link.offset = offset;
    link.table = base_id(scheme_);
    link.bucket = bucket;
    link.own_node = take_node(link);
    link.link_table = table;
    link.hash_mask = kLastOctet;
    link.hash_offset = static_cast<std::uint32_t>(offset);
  }
  filters.address.value = host;
  filters.address.mask = kWholeAddress;
  filters.address.offset = offset;
  filters.address.table = table;
  filters.address.bucket = host & kLastOctet;
  filters.address.own_node = take_node(filters.address);
  filters.address.classid = class_handle(class_minor(scheme_, number));
  return filters;
}

bool AddressTree::take_node(const U32Filter& filter) {
  return taken_.insert(filter.handle()).second;
}

}  // namespace quenby
