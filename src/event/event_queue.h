// The event queue: events wait here between their producers (the intake and the monitors) and the
// processing thread. Any thread may call Push and TakeAll at any time. The queue has no bound and
// signals nobody: its consumer polls.
#pragma once

#include <deque>
#include <mutex>

#include "event/event_record.h"

namespace ov {

/// Event records, oldest first.
using EventList = std::deque<EventRecord>;

/// Holds the events that wait for the next pass.
class EventQueue {
 public:
  /// Appends a copy of the record.
  void Push(const EventRecord &record);

  /// Moves every record, oldest first, to the caller and leaves the queue empty.
  EventList TakeAll();

 private:
  std::mutex mutex_;  // guards events_
  EventList events_;
};

extern EventQueue g_eventQueue;

}  // namespace ov
