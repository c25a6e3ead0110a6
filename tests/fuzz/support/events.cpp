#include "support/events.h"

#include <cstring>
#include <ctime>

#include "service/event_queue.h"
#include "support/expect.h"
#include "support/text.h"

namespace ov::fuzz {
namespace {

std::string_view BytesOf(const EventRecord &record) {
  return {reinterpret_cast<const char *>(&record), sizeof(record)};
}

}  // namespace

Events TakeEvents() {
  constexpr std::int64_t kSeconds = 60;
  const std::int64_t now = std::time(nullptr);
  Events events;
  for (const EventRecord &record : g_eventQueue.TakeAll()) {
    const std::string_view bytes = BytesOf(record);
    const std::string_view id = UpToNul(bytes.substr(0, 8));
    const std::string_view values = UpToNul(bytes.substr(8, 128));
    std::string wanted(bytes);
    std::memset(wanted.data(), 0, 136);
    wanted.replace(0, id.size(), id).replace(8, values.size(), values);
    ExpectSame<std::string_view>("record", bytes, wanted);
    ExpectSame("recent time", now - kSeconds <= record.time && record.time <= now, true);
    events.emplace_back(id, values);
  }
  return events;
}

Events::value_type EventOf(std::string_view id, std::string_view values) {
  return {std::string(id), std::string(UpToNul(values).substr(0, 127))};
}

}  // namespace ov::fuzz
