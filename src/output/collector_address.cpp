#include "output/collector_address.h"

#include <netdb.h>
#include <sys/socket.h>

#include <QByteArray>
#include <cstdio>
#include <cstring>

namespace ov {

int FindAddress(const QString &host, int socketType, in_addr &address) {
  addrinfo hints{};
  hints.ai_family = AF_INET;
  hints.ai_socktype = socketType;
  addrinfo *results = nullptr;
  const int error = getaddrinfo(host.toUtf8().constData(), nullptr, &hints, &results);
  if (error == 0) {
    sockaddr_in first{};
    std::memcpy(&first, results->ai_addr, sizeof(first));
    freeaddrinfo(results);
    address = first.sin_addr;
  }
  return error;
}

bool ResolveCollector(const QString &host, std::int32_t port, int socketType,
                      sockaddr_in &destination) {
  in_addr address{};
  const int error = FindAddress(host, socketType, address);
  if (error != 0) {
    std::printf("Invalid IP address or hostname: %s\n", gai_strerror(error));
    return false;
  }
  destination = {};
  destination.sin_family = AF_INET;
  destination.sin_port = htons(static_cast<std::uint16_t>(port));
  destination.sin_addr = address;
  return true;
}

}  // namespace ov
