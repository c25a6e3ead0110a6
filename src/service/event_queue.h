// The event queue: where events wait between whoever raised them and the processing thread.
// Push and TakeAll may be called from any thread at any time. It has no bound and never signals:
// its consumer polls.
#pragma once

#include <forward_list>
#include <mutex>

#include "event/event_record.h"

namespace ov {

/// Event records, oldest first, each a heap block of its own.
using EventList = std::forward_list<EventRecord>;

/// Holds the events that wait for the next pass.
class EventQueue {
 public:
  EventQueue() = default;
  EventQueue(const EventQueue &) = delete;
  EventQueue &operator=(const EventQueue &) = delete;

  /// Appends a copy of the record.
  void Push(const EventRecord &record);

  /// Hands over every record, oldest first, and leaves the queue empty.
  EventList TakeAll();

 private:
  std::mutex mutex_;  // guards the list and its tail
  EventList events_;
  EventList::iterator tail_ = events_.before_begin();
};

extern EventQueue g_eventQueue;

}  // namespace ov
