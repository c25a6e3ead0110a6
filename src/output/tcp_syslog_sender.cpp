#include "output/tcp_syslog_sender.h"

#include <sys/socket.h>
#include <unistd.h>

#include <QByteArray>
#include <cstdio>

#include "base/socket_address.h"
#include "output/collector_address.h"

namespace ov {

bool TcpSyslogSender::Init(const QString &host, std::int32_t port) {
  sockaddr_in destination;
  if (!ResolveCollector(host, port, SOCK_STREAM, destination)) {
    return false;
  }
  destination_.Set(destination);
  return true;
}

bool TcpSyslogSender::Connect() {
  // What is held already is not closed first: a failed try leaves its socket open.
  socket_ = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
  if (socket_ == -1) {
    std::puts("Error creating socket");
    return false;
  }
  const sockaddr_in destination = destination_.Get();
  if (connect(socket_, AsSocketAddress(destination), sizeof(destination)) != 0) {
    std::perror("connect");
    return false;
  }
  return true;
}

void TcpSyslogSender::Send(const QString &line) const {
  QByteArray bytes = line.trimmed().toUtf8();
  bytes.append('\n');
  if (send(socket_, bytes.constData(), static_cast<std::size_t>(bytes.size()), MSG_NOSIGNAL) < 0) {
    std::puts("Error sending message");
  }
}

void TcpSyslogSender::Close() {
  const int descriptor = socket_.exchange(-1);
  if (descriptor >= 0) {
    close(descriptor);
  }
}

}  // namespace ov
