// Sends lines to a syslog collector as UDP datagrams (RFC 3164, section 2). The run cycle calls
// Init and Close; the processing thread calls Send.
#pragma once

#include <QString>
#include <atomic>
#include <cstdint>
#include <mutex>

#include "base/socket_address.h"

namespace ov {

/// One socket from Init to Close, and the destination of the last Init that succeeded.
class UdpSyslogSender {
 public:
  UdpSyslogSender() = default;
  UdpSyslogSender(const UdpSyslogSender &) = delete;
  UdpSyslogSender &operator=(const UdpSyslogSender &) = delete;
  ~UdpSyslogSender() { Close(); }

  /// Opens a new socket and resolves the collector (see ResolveCollector). On failure, says why
  /// on standard output; the destination then stays that of the last success.
  bool Init(const QString &host, std::int32_t port);

  /// Sends the line's UTF-8 bytes as one datagram, with nothing added. A line that cannot be sent
  /// is reported on standard output and lost.
  void Send(const QString &line) const;

  void Close();

  std::int32_t SocketDescriptor() const { return socket_; }

 private:
  void ReplaceSocket();
  void CloseSocket();

  // A processing thread that outlived its cycle may read while the next cycle replaces them.
  std::atomic<std::int32_t> socket_{-1};
  SharedSocketAddress destination_;
  mutable std::mutex keep_open_;  // held while a line is sent, and while the socket is replaced
};

extern UdpSyslogSender g_udpSyslogSender;

}  // namespace ov
