#include "event/event_queue.h"

#include <cstring>

#include "support/support.h"

namespace ov {
namespace {

std::vector<std::string> IdsOf(const EventList &events) {
  std::vector<std::string> ids;
  for (const EventRecord &event : events) {
    ids.emplace_back(EventIdText(event));
  }
  return ids;
}

TEST(EventQueueTest, RecordsAreTakenOldestFirstAndOnce) {
  EventQueue queue;
  EXPECT_TRUE(queue.TakeAll().empty());
  for (const char *id : {"c", "a", "b", "a"}) {
    queue.Push(MakeEventRecord(id, nullptr));
  }
  const EventList earlier = queue.TakeAll();
  queue.Push(MakeEventRecord("d", nullptr));
  EXPECT_THAT(IdsOf(earlier), testing::ElementsAre("c", "a", "b", "a"));
  EXPECT_THAT(IdsOf(queue.TakeAll()), testing::ElementsAre("d"));
  EXPECT_TRUE(queue.TakeAll().empty());
}

TEST(EventQueueTest, QueueHoldsACopyOfAll144Bytes) {
  EventRecord record;
  std::memset(static_cast<void *>(&record), 'x', sizeof(record));
  EventQueue queue;
  queue.Push(record);
  ClearEventRecord(record);
  const EventList events = queue.TakeAll();
  const std::string image(reinterpret_cast<const char *>(&events.front()), sizeof(EventRecord));
  EXPECT_EQ(image, std::string(144, 'x'));
}

// Each thread numbers its records in `time`. Another takes them meanwhile.
TEST(EventQueueTest, NothingIsLostAndTheOrderOfEachThreadIsKept) {
  constexpr std::int64_t kEach = 20'000;
  EventQueue queue;
  std::vector<std::thread> producers;
  std::atomic<int> running{4};
  for (const char *id : {"0", "1", "2", "3"}) {
    producers.emplace_back([&, record = MakeEventRecord(id, nullptr)]() mutable {
      for (record.time = 0; record.time < kEach; ++record.time) {
        queue.Push(record);
      }
      --running;
    });
  }
  std::array<std::int64_t, 4> next{};
  for (bool isLast = false; !isLast;) {
    isLast = running == 0;
    for (const EventRecord &event : queue.TakeAll()) {
      ASSERT_EQ(event.time, next.at(static_cast<std::size_t>(event.id[0] - '0'))++);
    }
  }
  for (std::thread &producer : producers) {
    producer.join();
  }
  EXPECT_EQ(next, (std::array<std::int64_t, 4>{kEach, kEach, kEach, kEach}));
}

}  // namespace
}  // namespace ov
