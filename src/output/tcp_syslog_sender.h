// Sends lines to a syslog collector over TCP, each ended by a line feed (RFC 6587, section 3.4.2).
// The run cycle calls Init and Close; the processing thread calls Connect, Send and Close, once per
// batch.
#pragma once

#include <QString>
#include <cstdint>

#include "base/shared_fd.h"
#include "base/socket_address.h"

namespace ov {

/// No socket but from Connect to Close, and the destination of the last Init that succeeded.
class TcpSyslogSender {
 public:
  TcpSyslogSender() = default;
  TcpSyslogSender(const TcpSyslogSender &) = delete;
  TcpSyslogSender &operator=(const TcpSyslogSender &) = delete;
  ~TcpSyslogSender() { Close(); }

  /// Resolves the collector (see ResolveCollector); makes no socket. After a failure the
  /// destination stays that of the last success.
  bool Init(const QString &host, std::int32_t port);

  /// Connects a new socket to the collector. On failure, says why: on standard output when there
  /// is no socket, with perror when it does not connect.
  bool Connect();

  /// Writes the line, without white space at its ends and with a line feed. A line that cannot be
  /// sent is reported on standard output and lost; a dropped connection raises no signal.
  void Send(const QString &line) const;

  void Close();

  std::int32_t SocketDescriptor() const { return socket_.InUse().Get(); }

 private:
  // A processing thread that outlived its cycle may use what the next cycle closes and replaces.
  SharedFd socket_;
  SharedSocketAddress destination_;
};

extern TcpSyslogSender g_tcpSyslogSender;

}  // namespace ov
