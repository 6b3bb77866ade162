#pragma once

#include <netlink/cache.h>
#include <netlink/handlers.h>
#include <netlink/msg.h>
#include <netlink/route/class.h>
#include <netlink/route/classifier.h>
#include <netlink/route/link.h>
#include <netlink/route/qdisc.h>
#include <netlink/socket.h>

#include <memory>

/// One owner per libnl type. Nothing else releases a libnl object.
namespace quenby {

/// Closes and frees a socket; a null pointer is skipped.
inline void close_nl_socket(nl_sock* sock) {
  if (sock == nullptr) return;
  nl_close(sock);
  nl_socket_free(sock);
}

// The session's objects, which the shaper owns and the devices borrow.
using SocketPtr = std::unique_ptr<nl_sock, void (*)(nl_sock*)>;
using CachePtr = std::unique_ptr<nl_cache, void (*)(nl_cache*)>;
using LinkPtr = std::unique_ptr<rtnl_link, void (*)(rtnl_link*)>;

/// Calls `Free`, a function of libnl, on what it is given.
template <auto Free>
struct NlDeleter {
  template <typename T>
  void operator()(T* object) const {
    Free(object);
  }
};

using QdiscPtr = std::unique_ptr<rtnl_qdisc, NlDeleter<rtnl_qdisc_put>>;
using ClassPtr = std::unique_ptr<rtnl_class, NlDeleter<rtnl_class_put>>;
using ClsPtr = std::unique_ptr<rtnl_cls, NlDeleter<rtnl_cls_put>>;
using MsgPtr = std::unique_ptr<nl_msg, NlDeleter<nlmsg_free>>;
using CallbackPtr = std::unique_ptr<nl_cb, NlDeleter<nl_cb_put>>;

}  // namespace quenby
