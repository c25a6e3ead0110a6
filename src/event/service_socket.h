// Where clients and the service meet: a local stream socket that carries one event record per
// connection, without a reply.
#pragma once

#include <sys/socket.h>
#include <sys/un.h>

#include <cstring>

namespace ov {

constexpr char kServiceSocketPath[] = "/tmp/ov-events";

/// The address of the service socket; its full size (110 bytes) is the address length to pass.
inline sockaddr_un ServiceSocketAddress() {
  sockaddr_un address{};
  static_assert(sizeof(kServiceSocketPath) <= sizeof(address.sun_path));
  address.sun_family = AF_UNIX;
  std::memcpy(address.sun_path, kServiceSocketPath, sizeof(kServiceSocketPath));
  return address;
}

}  // namespace ov
