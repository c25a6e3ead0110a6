// Sends lines to a syslog collector as UDP datagrams (RFC 3164, section 2).
#pragma once

#include <netinet/in.h>

#include <QString>
#include <cstdint>
#include <memory>

#include "base/unique_fd.h"

namespace ov {

/// Holds one socket from Init to Close, and the destination of the last Init that succeeded; all
/// zero before. Copies share the socket, which stays open while one of them holds it.
class UdpSyslogSender {
 public:
  /// Closes the socket, opens a new one and resolves the collector (see ResolveCollector). Reports
  /// a failure on standard output and leaves the destination as it was.
  bool Init(const QString &host, std::int32_t port);

  /// Sends the line's UTF-8 bytes as one datagram, with nothing added. A line that cannot be sent
  /// is reported on standard output and lost.
  void Send(const QString &line) const;

  void Close() { socket_.reset(); }

 private:
  std::shared_ptr<const UniqueFd> socket_;
  sockaddr_in destination_{};
};

}  // namespace ov
