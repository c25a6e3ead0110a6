// Socket addresses as the socket calls take them.
#pragma once

#include <netinet/in.h>
#include <sys/socket.h>

#include <atomic>

namespace ov {

template <typename Address>
const sockaddr *AsSocketAddress(const Address &address) {
  return reinterpret_cast<const sockaddr *>(&address);
}

/// An IPv4 socket address that one thread may replace while others read it. All zero at first.
class SharedSocketAddress {
 public:
  sockaddr_in Get() const {
    const Parts parts = parts_;
    sockaddr_in address{};
    address.sin_family = parts.family;
    address.sin_port = parts.port;
    address.sin_addr = parts.host;
    return address;
  }

  void Set(const sockaddr_in &address) {
    parts_ = {address.sin_family, address.sin_port, address.sin_addr};
  }

 private:
  struct alignas(8) Parts {  // small and aligned enough for a processor to write at once
    sa_family_t family;
    in_port_t port;
    in_addr host;
  };

  std::atomic<Parts> parts_{};
  static_assert(decltype(parts_)::is_always_lock_free);
};

}  // namespace ov
