#include "output/tcp_syslog_sender.h"

#include <sys/socket.h>

#include <QByteArray>
#include <cstddef>
#include <cstdio>

#include "base/socket_address.h"
#include "output/collector_address.h"

namespace ov {

bool TcpSyslogSender::Init(const QString &host, std::int32_t port) {
  return ResolveCollector(host, port, SOCK_STREAM, destination_);
}

UniqueFd TcpSyslogSender::Connect() const {
  const int descriptor = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
  if (descriptor == -1) {
    std::puts("Error creating socket");
    return UniqueFd();
  }
  if (connect(descriptor, AsSocketAddress(destination_), sizeof(destination_)) != 0) {
    std::perror("connect");
    // Not closed here: the next try takes a new socket.
    return UniqueFd();
  }
  return UniqueFd(descriptor);
}

QByteArray TcpSyslogSender::Frame(const QString &line) {
  return line.trimmed().toUtf8().append('\n');
}

void TcpSyslogSender::Send(int connection, const QString &line) {
  const QByteArray bytes = Frame(line);
  const auto size = static_cast<std::size_t>(bytes.size());
  if (send(connection, bytes.constData(), size, MSG_NOSIGNAL) < 0) {
    std::puts("Error sending message");
  }
}

}  // namespace ov
