// Finds the address of a collector. Any thread may call it. A name takes as long as the system's
// resolver needs.
#pragma once

#include <netinet/in.h>

#include <QString>
#include <cstdint>

namespace ov {

/// Stores the first IPv4 address of `host` in `address`. Returns 0 or the error of getaddrinfo.
int FindAddress(const QString &host, int socketType, in_addr &address);

/// Resolves `host`, a dotted IPv4 address or a name, for sockets of `socketType` and stores its
/// first IPv4 address with the low 16 bits of `port`. When that fails, prints "Invalid IP address
/// or hostname: <why>" on standard output and leaves `destination` as it was.
bool ResolveCollector(const QString &host, std::int32_t port, int socketType,
                      sockaddr_in &destination);

}  // namespace ov
