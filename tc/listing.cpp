#include "tc/listing.h"

#include <netlink/errno.h>

#include "tc/nl_types.h"

namespace quenby {
namespace {

using Note = std::function<void(const nlmsghdr*)>;

// The kernel fills as much as the reader takes at a time and begins each part by counting off what
// it has listed: long parts make a long list cheap. It knows no longer ones.
constexpr std::size_t kPart = 32768;

int on_message(nl_msg* message, void* note) {
  (*static_cast<const Note*>(note))(nlmsg_hdr(message));
  return NL_OK;
}

int on_acknowledgement(nl_msg* /*message*/, void* acknowledged) {
  *static_cast<bool*>(acknowledged) = true;
  return NL_OK;
}

// The socket's own, with one for what is listed.
CallbackPtr callbacks_with(nl_sock* sock, const Note& note) {
  const CallbackPtr own(nl_socket_get_cb(sock));
  CallbackPtr callbacks(nl_cb_clone(own.get()));
  if (callbacks != nullptr)
    nl_cb_set(callbacks.get(), NL_CB_VALID, NL_CB_CUSTOM, on_message, const_cast<Note*>(&note));
  return callbacks;
}

}  // namespace

int list_objects(nl_sock* sock, int type, tcmsg header, const Note& note) {
  nl_socket_set_msg_buf_size(sock, kPart);
  const int sent = nl_send_simple(sock, type, NLM_F_DUMP, &header, sizeof(header));
  if (sent < 0) return sent;
  const CallbackPtr callbacks = callbacks_with(sock, note);
  return callbacks == nullptr ? -NLE_NOMEM : nl_recvmsgs(sock, callbacks.get());
}

int get_object(nl_sock* sock, int type, tcmsg header, const Note& note) {
  const CallbackPtr callbacks = callbacks_with(sock, note);
  if (callbacks == nullptr) return -NLE_NOMEM;
  bool acknowledged = false;
  nl_cb_set(callbacks.get(), NL_CB_ACK, NL_CB_CUSTOM, on_acknowledgement, &acknowledged);
  // Without the echo only those who listen would be told, up to Linux 6.7.
  int result = nl_send_simple(sock, type, NLM_F_ECHO, &header, sizeof(header));
  while (result >= 0 && !acknowledged) result = nl_recvmsgs(sock, callbacks.get());
  return result < 0 ? result : 0;
}

}  // namespace quenby
