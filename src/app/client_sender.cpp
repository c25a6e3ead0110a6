#include "app/client_sender.h"

#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>

#include "base/socket_address.h"
#include "base/unique_fd.h"
#include "event/event_record.h"
#include "event/service_socket.h"

namespace ov {
namespace {

// Treats a missing and a refusing socket alike: a client sees both while the service starts or
// reloads its settings.
bool Connect(int connection) {
  const sockaddr_un address = ServiceSocketAddress();
  for (int attempt = 1; attempt <= kConnectAttempts; ++attempt) {
    if (connect(connection, AsSocketAddress(address), sizeof(address)) == 0) {
      return true;
    }
    const int error = errno;
    sleep(static_cast<unsigned>(kConnectPause.count()));
    errno = error;
  }
  std::perror("connect");
  return false;
}

// Reports a failed call with perror.
bool Send(const EventRecord &record) {
  const UniqueFd connection(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
  if (!connection.IsOpen()) {
    std::perror("socket");
    return false;
  }
  if (!Connect(connection.Get())) {
    return false;
  }
  // A short write is not completed: the service reads a connection only once.
  if (write(connection.Get(), &record, sizeof(record)) < 0) {
    std::perror("write");
    return false;
  }
  return true;
}

}  // namespace

void SendEvent(const char *id, const char *values) {
  // If the service goes away, the write fails and is reported; no signal ends the client.
  std::signal(SIGPIPE, SIG_IGN);
  const EventRecord record = MakeEventRecord(id, values);
  PrintEventRecord(record);
  if (!Send(record)) {
    std::exit(EXIT_FAILURE);
  }
}

}  // namespace ov
