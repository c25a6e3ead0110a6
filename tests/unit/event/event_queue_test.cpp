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

TEST_F(ContendedQueueTest, NothingIsLostAndTheOrderOfEachThreadIsKept) {
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
