#include "service/event_intake.h"

#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <string_view>
#include <utility>
#include <vector>

#include "event/event_record.h"

namespace ov {

EventIntake::EventIntake(const EventCatalogue &catalogue, const Settings &settings,
                         EventQueue &queue)
    : catalogue_(catalogue), settings_(settings), queue_(queue) {}

int EventIntake::TakeInClient(int listener) {
  silentClients_.erase(
      std::remove_if(silentClients_.begin(), silentClients_.end(),
                     [this](const UniqueFd &client) { return HandleConnection(client.Get()); }),
      silentClients_.end());

  UniqueFd connection(accept4(listener, nullptr, nullptr, SOCK_CLOEXEC | SOCK_NONBLOCK));
  if (!connection.IsOpen()) {
    return errno;
  }
  if (!HandleConnection(connection.Get())) {
    SetAside(std::move(connection));
  }
  return 0;
}

bool EventIntake::WaitForClient(int listener, std::chrono::milliseconds timeout) const {
  std::vector<pollfd> awaited{{listener, POLLIN | POLLRDHUP, 0}};
  for (const UniqueFd &client : silentClients_) {
    awaited.push_back({client.Get(), POLLIN, 0});
  }
  poll(awaited.data(), awaited.size(), static_cast<int>(timeout.count()));
  return (awaited.front().revents & POLLRDHUP) == 0;
}

bool EventIntake::HandleConnection(int connection) {
  EventRecord record;
  ClearEventRecord(record);
  const ssize_t received = read(connection, &record, sizeof(record));
  if (received < 0 && errno == EAGAIN) {
    return false;
  }
  if (received < 1) {
    std::perror("read");
    return true;
  }
  std::puts("> Received event");
  PrintEventRecord(record);

  const std::string_view id = EventIdText(record);
  if (!catalogue_.IsDefined(id)) {
    std::printf("Event %.*s is not defined\n", static_cast<int>(id.size()), id.data());
  } else if (settings_.isAllowed(id)) {
    queue_.Push(record);
  }
  return true;
}

void EventIntake::SetAside(UniqueFd connection) {
  if (silentClients_.size() == kSilentClientLimit) {
    // From here on the client's write fails. The intake still reads what the client
    // wrote before.
    shutdown(silentClients_.front().Get(), SHUT_RD);
    HandleConnection(silentClients_.front().Get());
    silentClients_.pop_front();
  }
  silentClients_.push_back(std::move(connection));
}

}  // namespace ov
