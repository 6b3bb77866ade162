#include "tc/address_text.h"

#include <arpa/inet.h>

namespace quenby {

std::string address_text(std::uint32_t address) {
  char text[INET_ADDRSTRLEN];
  const in_addr in{address};
  return inet_ntop(AF_INET, &in, text, sizeof(text));
}

}  // namespace quenby
