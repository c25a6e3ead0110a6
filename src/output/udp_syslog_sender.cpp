#include "output/udp_syslog_sender.h"

#include <sys/socket.h>

#include <QByteArray>
#include <cstddef>
#include <cstdio>

#include "base/socket_address.h"
#include "output/collector_address.h"

namespace ov {

bool UdpSyslogSender::Init(const QString &host, std::int32_t port) {
  Close();
  socket_ = std::make_shared<const UniqueFd>(socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0));
  if (!socket_->IsOpen()) {
    std::puts("Error creating socket");
    return false;
  }
  return ResolveCollector(host, port, SOCK_DGRAM, destination_);
}

void UdpSyslogSender::Send(const QString &line) const {
  const QByteArray bytes = line.toUtf8();
  const int descriptor = socket_ ? socket_->Get() : -1;
  if (sendto(descriptor, bytes.constData(), static_cast<std::size_t>(bytes.size()), 0,
             AsSocketAddress(destination_), sizeof(destination_)) < 0) {
    std::puts("Error sending message");
  }
}

}  // namespace ov
