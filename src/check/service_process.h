// The running service, as /proc shows it.
#pragma once

#include <sys/types.h>

#include <QByteArray>
#include <QList>
#include <QString>
#include <cstdint>
#include <optional>

namespace ov {

struct ServiceProcess {
  pid_t id;
  uid_t user;
  gid_t group;
  std::int64_t startTime;                        ///< seconds since the Unix epoch
  std::optional<std::int64_t> descriptors;       ///< how many it may open; none without a limit
  std::optional<QList<QByteArray>> environment;  ///< NAME=VALUE; none if this user may not see it
};

/// The process that runs the service, or nothing.
std::optional<ServiceProcess> FindService();

/// Whether any process listens on the service socket.
bool HasListener();

}  // namespace ov
