#include "service/event_intake.h"

#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <QString>
#include <cerrno>
#include <cstdio>
#include <string>

#include "event/event_record.h"

namespace ov {
namespace {

// The first try is the only call for nearly every client: it has written by the time it is
// accepted.
ssize_t ReadRecord(int connection, EventRecord &record) {
  const ssize_t received = read(connection, &record, sizeof(record));
  if (received >= 0 || errno != EAGAIN) {
    return received;
  }
  constexpr int kTimeout = std::chrono::milliseconds(kIntakeTimeout).count();
  pollfd readable{connection, POLLIN, 0};
  if (TEMP_FAILURE_RETRY(poll(&readable, 1, kTimeout)) == 0) {
    // From here on a late write fails in the client, and what came before it is still read.
    shutdown(connection, SHUT_RD);
    errno = ETIMEDOUT;
  }
  return read(connection, &record, sizeof(record));
}

}  // namespace

void HandleConnection(int connection, const EventCatalogue &catalogue, const Settings &settings,
                      EventQueue &queue) {
  EventRecord record;
  ClearEventRecord(record);
  if (ReadRecord(connection, record) < 1) {
    std::perror("read");
    return;
  }
  std::puts("> Received event");
  PrintEventRecord(record);

  const std::string id(EventIdText(record));
  if (!IsDefined(catalogue, QString::fromLatin1(id.data(), static_cast<int>(id.size())))) {
    std::printf("Event %s is not defined\n", id.c_str());
    return;
  }
  if (settings.isAllowed(id.c_str())) {
    queue.Push(record);
  }
}

}  // namespace ov
