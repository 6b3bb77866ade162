#include "tc/make_intf.h"

#include "tc/htb_eth_intf.h"
#include "tc/htb_ifb_intf.h"
#include "tc/htb_imq_intf.h"

namespace quenby {

std::unique_ptr<HtbIntf> make_intf(const GlobalSettings& g, bool ingress, SocketPtr& sock,
                                   CachePtr& link_cache) {
  if (g.wan.empty()) return std::make_unique<HtbImqIntf>(ingress, sock, link_cache);
  if (ingress) return std::make_unique<HtbIfbIntf>(sock, link_cache);
  return std::make_unique<HtbEthIntf>(g.wan, sock, link_cache);
}

}  // namespace quenby
