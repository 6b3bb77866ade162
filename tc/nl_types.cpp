#include "tc/nl_types.h"

namespace quenby {

void close_nl_socket(nl_sock* sock) {
  if (sock == nullptr) return;
  nl_close(sock);
  nl_socket_free(sock);
}

}  // namespace quenby
