// Socket addresses as the socket calls take them.
#pragma once

#include <sys/socket.h>

namespace ov {

template <typename Address>
const sockaddr *AsSocketAddress(const Address &address) {
  return reinterpret_cast<const sockaddr *>(&address);
}

}  // namespace ov
