// Sends lines to a syslog collector over TCP, each ended by a line feed (RFC 6587, section 3.4.2).
// A sender knows the collector; a connection belongs to the batch that opened it.
#pragma once

#include <netinet/in.h>

#include <QString>
#include <cstdint>

#include "base/unique_fd.h"

namespace ov {

/// Holds the destination of the last Init that succeeded; all zero before.
class TcpSyslogSender {
 public:
  /// Resolves the collector (see ResolveCollector); makes no socket. After a failure the
  /// destination stays as it was.
  bool Init(const QString &host, std::int32_t port);

  /// Connects a new socket to the collector. On failure, returns a closed one and says why: on
  /// standard output if there is no socket, with perror if it does not connect. The descriptor of
  /// a socket that does not connect stays open until the process ends.
  UniqueFd Connect() const;

  /// The bytes of a line on the connection: without white space at its ends, with a line feed.
  static QByteArray Frame(const QString &line);

  /// Writes the frame of the line. A line that cannot be
  /// sent is reported on standard output and lost; a dropped connection raises no signal.
  static void Send(int connection, const QString &line);

 private:
  sockaddr_in destination_{};
};

}  // namespace ov
