#include "tc/links.h"

#include <net/if.h>

#include "cli/error.h"

namespace quenby {
namespace {

// Deliberately larger than usual: the device must pass whatever the WAN device receives, and hold
// it until the shaper lets it go.
constexpr unsigned kVirtualMtu = 16000;
constexpr unsigned kVirtualQueueLength = 11000;

LinkPtr named(const std::string& name) {
  LinkPtr link(rtnl_link_alloc(), rtnl_link_put);
  if (link == nullptr) _error("Cannot allocate link " + name);
  rtnl_link_set_name(link.get(), name.c_str());
  return link;
}

}  // namespace

LinkPtr find_link(nl_cache* links, const std::string& name) {
  const bool known = !name.empty() && links != nullptr;
  return {known ? rtnl_link_get_by_name(links, name.c_str()) : nullptr, rtnl_link_put};
}

int index_of(nl_cache* links, const std::string& name) {
  const LinkPtr link = find_link(links, name);
  return link == nullptr ? 0 : rtnl_link_get_ifindex(link.get());
}

std::vector<int> link_indexes(nl_cache* links) {
  std::vector<int> indexes;
  const auto note = [](nl_object* link, void* context) {
    const int ifindex = rtnl_link_get_ifindex(reinterpret_cast<rtnl_link*>(link));
    static_cast<std::vector<int>*>(context)->push_back(ifindex);
  };
  nl_cache_foreach(links, note, &indexes);
  return indexes;
}

void add_link(const Device& device, const char* kind, nl_cache* links) {
  const LinkPtr wanted = named(device.name);
  device.chk_nl_error(std::string("set ") + kind + " type", rtnl_link_set_type(wanted.get(), kind));
  rtnl_link_set_flags(wanted.get(), IFF_UP);
  rtnl_link_set_mtu(wanted.get(), kVirtualMtu);
  rtnl_link_set_txqlen(wanted.get(), kVirtualQueueLength);
  device.chk_nl_error("add interface", rtnl_link_add(device.sock, wanted.get(), NLM_F_CREATE));
  nl_cache_refill(device.sock, links);
}

void raise_link(const Device& device) {
  const LinkPtr changes(rtnl_link_alloc(), rtnl_link_put);
  if (changes == nullptr) _error("Cannot allocate link " + device.name);
  rtnl_link_set_flags(changes.get(), IFF_UP);
  device.chk_nl_error("raise interface",
                      rtnl_link_change(device.sock, device.link, changes.get(), 0));
}

void delete_link(const Device& device, nl_cache* links) {
  if (!device.exists()) return;
  const LinkPtr link = named(device.name);
  device.chk_nl_error("delete interface", rtnl_link_delete(device.sock, link.get()));
  nl_cache_refill(device.sock, links);
}

}  // namespace quenby
