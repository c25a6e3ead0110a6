// The event intake: takes the one event record that each client connection carries. A client that
// connects and stays silent holds nobody up: it is set aside until it writes. Runs on the main
// thread.
#pragma once

#include <chrono>
#include <cstddef>
#include <deque>

#include "base/unique_fd.h"
#include "config/settings.h"
#include "event/event_queue.h"
#include "service/event_catalogue.h"

namespace ov {

/// The number of silent clients that are set aside at most.
constexpr std::size_t kSilentClientLimit = 64;

/// Owns the connections of silent clients, from one run cycle to the next.
class EventIntake {
 public:
  EventIntake(const EventCatalogue &catalogue, const Settings &settings, EventQueue &queue);

  /// Reads the silent clients that have written, then accepts one client, if one waits. Reads its
  /// record or sets it aside. If 64 clients are set aside already, ends the one that is silent
  /// longest. Returns 0, or the error number of the failed accept (EAGAIN: no client waits).
  int TakeInClient(int listener);

  /// Waits until TakeInClient has something to do or the time is over (negative: no limit).
  /// Returns false once the listener is shut down for reading.
  bool WaitForClient(int listener, std::chrono::milliseconds timeout) const;

  /// Reads one record from a non-blocking connection, prints it, and queues it if its event is
  /// defined and allowed. One read is all: a short record is taken as it is. Reports a failed read
  /// and an end of data with perror. Returns false if the client has not written yet.
  bool HandleConnection(int connection);

 private:
  void SetAside(UniqueFd connection);

  const EventCatalogue &catalogue_;
  const Settings &settings_;
  EventQueue &queue_;
  std::deque<UniqueFd> silentClients_;  // longest silent first
};

}  // namespace ov
