// How each line names the machine that sends it. The lookups may be called from any thread; the
// two texts are written and read by a processing thread as it begins a pass.
#pragma once

#include <QString>

namespace ov {

/// The IPv4 address, in dotted decimal, of the last interface in the system's order that is up
/// and running; loopback counts, so it is found when nothing else is up. Empty when there is none
/// or, after a perror line, when the interfaces cannot be listed.
QString GetLocalIpAddress();

/// Looks both texts up anew: first the address, then the name.
void RefreshHostIdentity(QString &addressText, QString &nameText);

extern QString g_hostAddressText;
extern QString g_hostNameText;

}  // namespace ov
