#include "tc/make_intf.h"

#include "tc/htb_eth_intf.h"
#include "tc/htb_ifb_intf.h"
#include "tc/htb_imq_intf.h"

namespace quenby {

std::unique_ptr<HtbIntf> make_intf(const GlobalSettings& g, Direction way, SocketPtr& sock,
                                   CachePtr& link_cache) {
  const bool download = way == Direction::download;
  if (g.wan.empty()) return std::make_unique<HtbImqIntf>(download, sock, link_cache);
  if (download) return std::make_unique<HtbIfbIntf>(sock, link_cache);
  return std::make_unique<HtbEthIntf>(g.wan, sock, link_cache);
}

}  // namespace quenby
