// The running service, as /proc shows it.
#pragma once

#include <sys/types.h>

#include <QByteArray>
#include <QList>
#include <QString>
#include <chrono>
#include <cstdint>
#include <optional>
#include <vector>

namespace ov {

struct ServiceProcess {
  pid_t id;
  uid_t user;
  gid_t group;
  std::vector<gid_t> groups;                     ///< the supplementary ones
  std::chrono::nanoseconds startTime;            ///< since the Unix epoch
  std::optional<std::int64_t> descriptors;       ///< how many it may open; none without a limit
  std::optional<QList<QByteArray>> environment;  ///< NAME=VALUE; none if this user may not see it
};

/// The process that runs the service, or nothing.
std::optional<ServiceProcess> FindService();

/// Takes over what the service's environment says about language, time zone and path, as far as
/// this user may see it: dates and programs are then those of the service. The rest of the
/// environment stays this user's, since anybody may start a process that looks like the service.
/// Call it before Qt has used its locale.
void AdoptEnvironment(const ServiceProcess &service);

/// Gives up the rights of root for those of the service's user, for good: this process may then
/// read and run what the service may. Returns whether it has the rights of the service.
bool BecomeUserOf(const ServiceProcess &service);

/// Whether any process listens on the service socket.
bool HasListener();

}  // namespace ov
