#include "output/udp_syslog_sender.h"

#include <sys/socket.h>
#include <unistd.h>

#include <QByteArray>
#include <cstdio>

#include "base/socket_address.h"
#include "output/collector_address.h"

namespace ov {

bool UdpSyslogSender::Init(const QString &host, std::int32_t port) {
  ReplaceSocket();
  if (socket_ < 0) {
    std::puts("Error creating socket");
    return false;
  }
  sockaddr_in destination;
  if (!ResolveCollector(host, port, SOCK_DGRAM, destination)) {
    return false;
  }
  destination_.Set(destination);
  return true;
}

void UdpSyslogSender::Send(const QString &line) const {
  const QByteArray bytes = line.toUtf8();
  const sockaddr_in destination = destination_.Get();
  const std::lock_guard<std::mutex> lock(keep_open_);
  if (sendto(socket_, bytes.constData(), static_cast<std::size_t>(bytes.size()), 0,
             AsSocketAddress(destination), sizeof(destination)) < 0) {
    std::puts("Error sending message");
  }
}

void UdpSyslogSender::Close() {
  const std::lock_guard<std::mutex> lock(keep_open_);
  CloseSocket();
}

void UdpSyslogSender::ReplaceSocket() {
  const std::lock_guard<std::mutex> lock(keep_open_);
  CloseSocket();
  socket_ = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
}

void UdpSyslogSender::CloseSocket() {
  const int descriptor = socket_.exchange(-1);
  if (descriptor >= 0) {
    close(descriptor);
  }
}

}  // namespace ov
