// Collectors on the loopback address, each on a port of its own. They wait for what a test expects
// longer than any test needs, and then give up, so that a test that fails also ends.
#pragma once

#include <chrono>
#include <cstdint>
#include <string>

#include "base/unique_fd.h"

namespace ov {

/// Takes datagrams.
class UdpCollector {
 public:
  UdpCollector();

  [[nodiscard]] std::int32_t Port() const { return port_; }

  /// The next datagram's bytes, or "(nothing)".
  [[nodiscard]] std::string Receive() const;

 private:
  std::int32_t port_ = 0;
  UniqueFd socket_;
};

/// Takes connections.
class TcpCollector {
 public:
  TcpCollector();

  [[nodiscard]] std::int32_t Port() const { return port_; }

  /// The next connection; not open when none comes.
  [[nodiscard]] UniqueFd Accept() const;

  /// Whether a connection comes within the time.
  [[nodiscard]] bool HasConnection(std::chrono::milliseconds timeout = {}) const;

 private:
  std::int32_t port_ = 0;
  UniqueFd socket_;
};

/// What arrives on the connection until the other side closes it.
std::string ReadToEnd(const UniqueFd &connection);

/// Ends the connection with a reset, which the other side's next write meets.
void ResetConnection(UniqueFd &connection);

/// Waits until the other side's close or reset has arrived.
bool WaitForHangUp(int socket);

/// A port that nothing listens on.
std::int32_t ClosedPort();

}  // namespace ov
