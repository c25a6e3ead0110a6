#include "service/event_queue.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <array>
#include <atomic>
#include <cstring>
#include <iterator>
#include <string>
#include <thread>
#include <vector>

namespace ov {
namespace {

std::vector<std::string> IdsOf(const EventList &events) {
  std::vector<std::string> ids;
  for (const EventRecord &event : events) {
    ids.emplace_back(EventIdText(event));
  }
  return ids;
}

TEST(EventQueueTest, IsEmptyAtFirst) {
  EventQueue queue;
  EXPECT_TRUE(queue.TakeAll().empty());
}

TEST(EventQueueTest, HandsOverOldestFirst) {
  EventQueue queue;
  for (const char *id : {"c", "a", "b"}) {
    queue.Push(MakeEventRecord(id, nullptr));
  }
  EXPECT_THAT(IdsOf(queue.TakeAll()), testing::ElementsAre("c", "a", "b"));
}

TEST(EventQueueTest, KeepsAll144Bytes) {
  EventRecord record;
  std::memset(static_cast<void *>(&record), 'x', sizeof(record));
  EventQueue queue;
  queue.Push(record);
  const EventList events = queue.TakeAll();
  EXPECT_EQ(std::memcmp(&events.front(), &record, sizeof(record)), 0);
}

TEST(EventQueueTest, HoldsACopy) {
  EventRecord record = MakeEventRecord("before", nullptr);
  EventQueue queue;
  queue.Push(record);
  record = MakeEventRecord("after", nullptr);
  EXPECT_THAT(IdsOf(queue.TakeAll()), testing::ElementsAre("before"));
}

TEST(EventQueueTest, KeepsEqualRecordsApart) {
  const EventRecord record = MakeEventRecord("same", nullptr);
  EventQueue queue;
  queue.Push(record);
  queue.Push(record);
  EXPECT_THAT(IdsOf(queue.TakeAll()), testing::ElementsAre("same", "same"));
}

TEST(EventQueueTest, IsEmptyAfterTakeAll) {
  EventQueue queue;
  queue.Push(MakeEventRecord("a", nullptr));
  queue.TakeAll();
  EXPECT_TRUE(queue.TakeAll().empty());
}

TEST(EventQueueTest, TakesNewRecordsAfterTakeAll) {
  EventQueue queue;
  queue.Push(MakeEventRecord("a", nullptr));
  const EventList earlier = queue.TakeAll();
  queue.Push(MakeEventRecord("b", nullptr));
  queue.Push(MakeEventRecord("c", nullptr));
  EXPECT_THAT(IdsOf(queue.TakeAll()), testing::ElementsAre("b", "c"));
}

TEST(EventQueueTest, TakenRecordsAreNotTouchedByLaterPushes) {
  EventQueue queue;
  queue.Push(MakeEventRecord("a", nullptr));
  const EventList earlier = queue.TakeAll();
  queue.Push(MakeEventRecord("b", nullptr));
  EXPECT_THAT(IdsOf(earlier), testing::ElementsAre("a"));
}

TEST(EventQueueTest, HasNoBound) {
  constexpr int kMany = 100'000;
  EventQueue queue;
  const EventRecord record = MakeEventRecord("a", nullptr);
  for (int i = 0; i < kMany; ++i) {
    queue.Push(record);
  }
  const EventList events = queue.TakeAll();
  EXPECT_EQ(std::distance(events.begin(), events.end()), kMany);
}

// Several producers, each numbering its records in `time`, and one consumer that takes while they
// push.
class ContendedQueueTest : public testing::Test {
 protected:
  static constexpr int kProducers = 4;
  static constexpr std::int64_t kEach = 20'000;

  ContendedQueueTest() {
    std::vector<std::thread> producers;
    for (int producer = 0; producer < kProducers; ++producer) {
      producers.emplace_back([this, producer] { Produce(producer); });
    }
    while (running_ > 0) {
      Consume();
    }
    for (std::thread &producer : producers) {
      producer.join();
    }
    Consume();
  }

  void Produce(int producer) {
    EventRecord record = MakeEventRecord(std::to_string(producer).c_str(), nullptr);
    for (record.time = 0; record.time < kEach; ++record.time) {
      queue_.Push(record);
    }
    --running_;
  }

  void Consume() {
    for (const EventRecord &event : queue_.TakeAll()) {
      const std::size_t producer = static_cast<std::size_t>(event.id[0] - '0');
      numbers_.at(producer).push_back(event.time);
    }
  }

  EventQueue queue_;
  std::array<std::vector<std::int64_t>, kProducers> numbers_;
  std::atomic<int> running_{kProducers};
};

TEST_F(ContendedQueueTest, LosesNothingAndKeepsTheOrderOfEachThread) {
  std::vector<std::int64_t> all;
  for (std::int64_t number = 0; number < kEach; ++number) {
    all.push_back(number);
  }
  for (const std::vector<std::int64_t> &numbers : numbers_) {
    EXPECT_TRUE(numbers == all) << numbers.size() << " records";
  }
}

}  // namespace
}  // namespace ov
