#include "support/events.h"

#include <gtest/gtest.h>

#include <cstring>
#include <ctime>

#include "event/event_queue.h"
#include "event/event_record.h"

namespace ov {

std::string TakeEvents() {
  constexpr std::int64_t kLongestTest = 120;  // seconds
  const EventList records = g_eventQueue.TakeAll();
  const std::int64_t now = std::time(nullptr);
  std::string events;
  for (const EventRecord &record : records) {
    const std::string id(EventIdText(record));
    const std::string values(EventValuesText(record));
    EventRecord remade = MakeEventRecord(id.c_str(), values.c_str());
    remade.time = record.time;
    EXPECT_EQ(std::memcmp(&record, &remade, kEventRecordSize), 0) << id << " " << values;
    EXPECT_TRUE(now - kLongestTest <= record.time && record.time <= now) << record.time;
    events.append(id).append(" ").append(values).append("|");
  }
  return events;
}

}  // namespace ov
