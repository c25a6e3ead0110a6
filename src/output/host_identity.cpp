#include "output/host_identity.h"

#include <ifaddrs.h>
#include <net/if.h>
#include <netdb.h>
#include <netinet/in.h>
#include <sys/socket.h>

#include <QSysInfo>
#include <array>
#include <cstdio>
#include <memory>

namespace ov {
namespace {

bool Qualifies(const ifaddrs &entry) {
  constexpr unsigned kUpAndRunning = IFF_UP | IFF_RUNNING;
  return entry.ifa_addr != nullptr && (entry.ifa_flags & kUpAndRunning) == kUpAndRunning &&
         entry.ifa_addr->sa_family == AF_INET;
}

}  // namespace

QString GetLocalIpAddress() {
  ifaddrs *first = nullptr;
  if (getifaddrs(&first) != 0) {
    std::perror("getifaddrs");
    return {};
  }
  const std::unique_ptr<ifaddrs, decltype(&freeifaddrs)> list(first, freeifaddrs);

  QString address;
  // The last match wins: the system lists network interfaces behind the loopback interface.
  for (const ifaddrs *entry = list.get(); entry != nullptr; entry = entry->ifa_next) {
    std::array<char, NI_MAXHOST> text{};
    if (Qualifies(*entry) && getnameinfo(entry->ifa_addr, sizeof(sockaddr_in), text.data(),
                                         text.size(), nullptr, 0, NI_NUMERICHOST) == 0) {
      address = QString::fromUtf8(text.data());
    }
  }
  return address;
}

HostIdentity LookUpHostIdentity() {
  HostIdentity host;
  host.address = GetLocalIpAddress();
  host.name = QSysInfo::machineHostName();
  return host;
}

}  // namespace ov
