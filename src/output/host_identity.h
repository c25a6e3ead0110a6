// How each line names the machine that sends it. Any thread may look it up.
#pragma once

#include <QString>

namespace ov {

/// The host's two texts for the lines of one pass.
struct HostIdentity {
  QString address;
  QString name;
};

/// The IPv4 address, in dotted decimal, of the last interface in the system's order that is up
/// and running. Loopback counts. Empty when there is none or, after a perror line, when the
/// interfaces cannot be listed.
QString GetLocalIpAddress();

/// Looks up first the address, then the name.
HostIdentity LookUpHostIdentity();

}  // namespace ov
