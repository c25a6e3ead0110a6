#include "service/event_queue.h"

#include <utility>

namespace ov {

void EventQueue::Push(const EventRecord &record) {
  EventList copy;  // made before the lock is taken, so that it is held for a few pointers only
  copy.push_front(record);
  const std::lock_guard<std::mutex> lock(mutex_);
  events_.splice_after(tail_, copy);
  ++tail_;
}

EventList EventQueue::TakeAll() {
  const std::lock_guard<std::mutex> lock(mutex_);
  tail_ = events_.before_begin();
  return std::exchange(events_, {});
}

}  // namespace ov
