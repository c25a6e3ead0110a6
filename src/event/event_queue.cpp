#include "event/event_queue.h"

#include <utility>

namespace ov {

void EventQueue::Push(const EventRecord &record) {
  const std::lock_guard<std::mutex> lock(mutex_);
  events_.push_back(record);
}

EventList EventQueue::TakeAll() {
  const std::lock_guard<std::mutex> lock(mutex_);
  return std::exchange(events_, {});
}

}  // namespace ov
