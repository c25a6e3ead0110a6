#include "output/tcp_syslog_sender.h"

#include <sys/socket.h>

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
  socket_.Replace(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
  const SharedFd::Use inUse = socket_.InUse();
  if (inUse.Get() == -1) {
    std::puts("Error creating socket");
    return false;
  }
  const sockaddr_in destination = destination_.Get();
  if (connect(inUse.Get(), AsSocketAddress(destination), sizeof(destination)) != 0) {
    std::perror("connect");
    return false;
  }
  return true;
}

void TcpSyslogSender::Send(const QString &line) const {
  QByteArray bytes = line.trimmed().toUtf8();
  bytes.append('\n');
  const SharedFd::Use inUse = socket_.InUse();
  const auto size = static_cast<std::size_t>(bytes.size());
  if (send(inUse.Get(), bytes.constData(), size, MSG_NOSIGNAL) < 0) {
    std::puts("Error sending message");
  }
}

void TcpSyslogSender::Close() { socket_.Close(); }

}  // namespace ov
