#include "event/event_record.h"

#include <cinttypes>
#include <cstdio>
#include <cstring>
#include <ctime>

namespace ov {
namespace {

std::string_view TextFrom(const EventRecord &record, std::size_t offset) {
  const char *text = reinterpret_cast<const char *>(&record) + offset;
  return {text, strnlen(text, kEventRecordSize - offset)};
}

template <std::size_t kSize>
void CopyText(std::array<char, kSize> &field, const char *text) {
  std::memcpy(field.data(), text, strnlen(text, kSize - 1));
}

int PrintLength(std::string_view text) { return static_cast<int>(text.size()); }

}  // namespace

EventRecord MakeEventRecord(const char *id, const char *values) {
  EventRecord record{};
  CopyText(record.id, id);
  if (values != nullptr) {
    CopyText(record.values, values);
  }
  record.time = std::time(nullptr);
  return record;
}

void ClearEventRecord(EventRecord &record) { record = EventRecord{}; }

void PrintEventRecord(const EventRecord &record) {
  const std::string_view id = EventIdText(record);
  const std::string_view values = EventValuesText(record);
  std::printf("Event [%.*s] (%.*s) at %" PRIu64 "\n", PrintLength(id), id.data(),
              PrintLength(values), values.data(), static_cast<std::uint64_t>(record.time));
}

std::string_view EventIdText(const EventRecord &record) {
  return TextFrom(record, offsetof(EventRecord, id));
}

std::string_view EventValuesText(const EventRecord &record) {
  return TextFrom(record, offsetof(EventRecord, values));
}

}  // namespace ov
