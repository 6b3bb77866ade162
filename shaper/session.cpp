#include "shaper/session.h"

#include <netlink/utils.h>

#include "cli/error.h"
#include "tc/htb_class.h"
#include "tc/nl_error.h"

namespace quenby {

SocketPtr open_socket(int protocol) {
  SocketPtr sock(nl_socket_alloc(), close_nl_socket);
  if (sock == nullptr) _error("Socket allocation failed");
  check_nl_result("connect socket", nl_connect(sock.get(), protocol));
  return sock;
}

CachePtr open_link_cache(const SocketPtr& sock) {
  nl_cache* links = nullptr;
  const int result = rtnl_link_alloc_cache(sock.get(), AF_UNSPEC, &links);
  if (result < 0 || links == nullptr) nl_fatal("Cannot allocate rtnl_link_cache", result);
  return {links, nl_cache_free};
}

void read_psched_hz() { set_psched_hz(nl_get_psched_hz()); }

}  // namespace quenby
