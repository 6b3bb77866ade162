#include "tc/htb_intf.h"

#include <net/if.h>

#include "cli/error.h"
#include "tc/firewall_rules.h"
#include "tc/nl_error.h"

namespace quenby {
namespace {

// Deliberately larger than usual: the device must pass whatever the WAN device receives, and hold
// it until the shaper lets it go.
constexpr unsigned kVirtualMtu = 16000;
constexpr unsigned kVirtualQueueLength = 11000;

}  // namespace

HtbIntf::HtbIntf(const std::string& name, bool ingress, SocketPtr& sock, CachePtr& link_cache)
    : ingress_(ingress),
      name_(name),
      sock_(sock),
      link_cache_(link_cache),
      link_(nullptr, rtnl_link_put) {
  find_link();
}

LinkPtr HtbIntf::get_link(const std::string& name) const {
  const bool known = !name.empty() && link_cache_ != nullptr;
  return {known ? rtnl_link_get_by_name(link_cache_.get(), name.c_str()) : nullptr, rtnl_link_put};
}

void HtbIntf::find_link() { link_ = get_link(name_); }

int HtbIntf::ifindex() const { return has_link() ? rtnl_link_get_ifindex(link_.get()) : 0; }

int HtbIntf::ifindex_of(const std::string& name) const {
  const LinkPtr link = get_link(name);
  return link == nullptr ? 0 : rtnl_link_get_ifindex(link.get());
}

bool HtbIntf::link_exists(const std::string& name) const { return get_link(name) != nullptr; }

void HtbIntf::link_add() {
  const LinkPtr wanted(rtnl_link_alloc(), rtnl_link_put);
  if (wanted == nullptr) _error("Cannot allocate link " + name_);
  rtnl_link_set_name(wanted.get(), name_.c_str());
  chk_nl_error(std::string("set ") + kind() + " type", rtnl_link_set_type(wanted.get(), kind()),
               false);
  rtnl_link_set_flags(wanted.get(), IFF_UP);
  rtnl_link_set_mtu(wanted.get(), kVirtualMtu);
  rtnl_link_set_txqlen(wanted.get(), kVirtualQueueLength);
  chk_nl_error("add interface", rtnl_link_add(sock(), wanted.get(), NLM_F_CREATE), false);
  nl_cache_refill(sock(), link_cache_.get());
  find_link();
  if (!has_link()) _error("Cannot allocate link " + name_);
}

void HtbIntf::link_del() {
  if (!has_link()) return;
  const LinkPtr named(rtnl_link_alloc(), rtnl_link_put);
  if (named == nullptr) _error("Cannot allocate link " + name_);
  rtnl_link_set_name(named.get(), name_.c_str());
  chk_nl_error("delete interface", rtnl_link_delete(sock(), named.get()), false);
  link_.reset();
  nl_cache_refill(sock(), link_cache_.get());
}

void HtbIntf::fill_clean_fw_rules(std::string& list) const {
  if (!ingress()) append_commands(list, clean_rules());
}

void HtbIntf::nl_error(const std::string& what, int code) const {
  nl_fatal(name_ + " failed to " + what, code);
}

void HtbIntf::chk_nl_error(const std::string& what, int code, bool ignore) const {
  if (!ignore && code < 0) nl_error(what, code);
}

void HtbIntf::attach(rtnl_tc* object, const char* kind) const {
  if (has_link()) rtnl_tc_set_link(object, link_.get());
  if (kind != nullptr && rtnl_tc_set_kind(object, kind) < 0)
    _error(std::string("Unable to set kind to ") + kind);
}

}  // namespace quenby
