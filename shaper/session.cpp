#include "shaper/session.h"

#include <linux/netlink.h>
#include <netlink/utils.h>
#include <sys/socket.h>
#include <sys/time.h>

#include <utility>

#include "cli/error.h"
#include "tc/htb_class.h"
#include "tc/nl_error.h"

namespace quenby {

namespace {

// The kernel has answered by the time that a request is sent. Without an end the library waits for
// the answer to a list that it could not ask for.
constexpr timeval kLongestSilence = {2, 0};

void limit_silence(nl_sock& sock) {
  setsockopt(nl_socket_get_fd(&sock), SOL_SOCKET, SO_RCVTIMEO, &kLongestSilence,
             sizeof(kLongestSilence));
}

}  // namespace

SocketPtr open_socket(int protocol) {
  SocketPtr sock(nl_socket_alloc(), close_nl_socket);
  if (sock == nullptr) _error("Socket allocation failed");
  check_nl_result("connect socket", nl_connect(sock.get(), protocol));
  limit_silence(*sock);
  return sock;
}

CachePtr open_link_cache(const SocketPtr& sock) {
  nl_cache* links = nullptr;
  const int result = rtnl_link_alloc_cache(sock.get(), AF_UNSPEC, &links);
  if (result < 0 || links == nullptr) nl_fatal("Cannot allocate rtnl_link_cache", result);
  return {links, nl_cache_free};
}

Session open_session() {
  SocketPtr route = open_socket(NETLINK_ROUTE);
  SocketPtr netfilter = open_socket(NETLINK_NETFILTER);
  CachePtr links = open_link_cache(route);
  read_psched_hz();
  return {std::move(route), std::move(netfilter), std::move(links)};
}

void read_psched_hz() { set_psched_hz(nl_get_psched_hz()); }

}  // namespace quenby
