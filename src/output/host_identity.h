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
/// and running. Loopback counts. Empty if there is none or if the system cannot list interfaces,
/// which is reported with perror.
QString GetLocalIpAddress();

/// Looks up first the address, then the name.
HostIdentity LookUpHostIdentity();

}  // namespace ov
