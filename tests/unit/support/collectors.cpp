#include "support/collectors.h"

#include <gtest/gtest.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>

#include <array>
#include <chrono>

#include "base/socket_address.h"

namespace ov {
namespace {

constexpr std::chrono::milliseconds kPatience{20'000};
constexpr std::size_t kLargestDatagram = 65536;

bool WaitFor(int socket, short events, std::chrono::milliseconds timeout = kPatience) {
  pollfd entry{socket, events, 0};
  return poll(&entry, 1, static_cast<int>(timeout.count())) == 1;
}

UniqueFd BindToLoopback(int type, std::int32_t &port) {
  UniqueFd bound(socket(AF_INET, type | SOCK_CLOEXEC, 0));
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  socklen_t size = sizeof(address);
  EXPECT_EQ(bind(bound.Get(), AsSocketAddress(address), size), 0);
  EXPECT_EQ(getsockname(bound.Get(), reinterpret_cast<sockaddr *>(&address), &size), 0);
  port = ntohs(address.sin_port);
  return bound;
}

}  // namespace

UdpCollector::UdpCollector() : socket_(BindToLoopback(SOCK_DGRAM, port_)) {}

std::string UdpCollector::Receive() const {
  if (!WaitFor(socket_.Get(), POLLIN)) {
    return "(nothing)";
  }
  std::string bytes(kLargestDatagram, '\0');
  bytes.resize(static_cast<std::size_t>(recv(socket_.Get(), bytes.data(), bytes.size(), 0)));
  return bytes;
}

TcpCollector::TcpCollector() : socket_(BindToLoopback(SOCK_STREAM, port_)) {
  EXPECT_EQ(listen(socket_.Get(), SOMAXCONN), 0);
}

UniqueFd TcpCollector::Accept() const {
  return UniqueFd(HasConnection(kPatience) ? accept4(socket_.Get(), nullptr, nullptr, SOCK_CLOEXEC)
                                           : -1);
}

bool TcpCollector::HasConnection(std::chrono::milliseconds timeout) const {
  return WaitFor(socket_.Get(), POLLIN, timeout);
}

std::string ReadToEnd(const UniqueFd &connection) {
  std::string all;
  std::array<char, 4096> part{};
  while (WaitFor(connection.Get(), POLLIN)) {
    const ssize_t received = recv(connection.Get(), part.data(), part.size(), 0);
    if (received <= 0) {
      return all;
    }
    all.append(part.data(), static_cast<std::size_t>(received));
  }
  return all + "(not ended)";
}

void ResetConnection(UniqueFd &connection) {
  const linger discard{1, 0};
  EXPECT_EQ(setsockopt(connection.Get(), SOL_SOCKET, SO_LINGER, &discard, sizeof(discard)), 0);
  connection.Reset();
}

bool WaitForHangUp(int socket) { return WaitFor(socket, POLLRDHUP); }

std::int32_t ClosedPort() {
  std::int32_t port = 0;
  BindToLoopback(SOCK_STREAM, port);
  return port;
}

}  // namespace ov
