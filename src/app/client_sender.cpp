#include "app/client_sender.h"

#include <sys/socket.h>
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

[[noreturn]] void EndProcess(UniqueFd &connection, const char *failedCall) {
  std::perror(failedCall);
  connection.Reset();
  std::exit(EXIT_FAILURE);
}

// A missing and a refusing socket are treated alike: both are what a client sees while the
// service starts or reloads its settings.
void Connect(UniqueFd &connection) {
  const sockaddr_un address = ServiceSocketAddress();
  for (int attempt = 1; connect(connection.Get(), AsSocketAddress(address), sizeof(address)) != 0;
       ++attempt) {
    const int error = errno;
    sleep(static_cast<unsigned>(kConnectPause.count()));
    if (attempt == kConnectAttempts) {
      errno = error;
      EndProcess(connection, "connect");
    }
  }
}

}  // namespace

void SendEvent(const char *id, const char *values) {
  // A service that goes away is a write that fails and is reported, not a signal.
  std::signal(SIGPIPE, SIG_IGN);
  const EventRecord record = MakeEventRecord(id, values);
  PrintEventRecord(record);
  UniqueFd connection(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
  if (!connection.IsOpen()) {
    EndProcess(connection, "socket");
  }
  Connect(connection);
  // One write, and a short one is not completed: the service reads a connection once.
  if (write(connection.Get(), &record, sizeof(record)) < 0) {
    EndProcess(connection, "write");
  }
}

}  // namespace ov
