// The event record: the one unit of data that travels through the system. It is the service
// socket's wire format as well as the queue's element, and is sent and stored as it lies in
// memory, in the host's byte order. These functions may be called from any thread.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <string_view>

namespace ov {

constexpr std::size_t kEventRecordSize = 144;  // bytes
constexpr std::size_t kEventIdSize = 8;        // bytes, the last one a NUL
constexpr std::size_t kEventValuesSize = 128;  // bytes, the last one a NUL

/// One event. A record from another program need not hold a NUL in `id` or `values`: read both
/// with EventIdText and EventValuesText, which stay inside the record.
struct EventRecord {
  std::array<char, kEventIdSize> id;
  std::array<char, kEventValuesSize> values;  ///< comma-separated, as one text
  std::int64_t time;                          ///< seconds since the Unix epoch
};

static_assert(sizeof(EventRecord) == kEventRecordSize);
static_assert(offsetof(EventRecord, id) == 0);
static_assert(offsetof(EventRecord, values) == 8);
static_assert(offsetof(EventRecord, time) == 136);

/// Makes a record of the current time. Texts are cut silently, `id` to 7 and `values` to 127
/// bytes. `values` may be null for an event without values. Every byte of the record is set.
EventRecord MakeEventRecord(const char *id, const char *values);

/// Sets every byte of the record to zero.
void ClearEventRecord(EventRecord &record);

/// Prints "Event [<id>] (<values>) at <time>", the time as an unsigned number, on standard output.
void PrintEventRecord(const EventRecord &record);

/// The identifier up to its NUL. One that fills its field runs on into the values, and ends with
/// the record at the latest. The view is into `record`.
std::string_view EventIdText(const EventRecord &record);

/// The values up to their NUL, which without one run on into the time. The view is into `record`.
std::string_view EventValuesText(const EventRecord &record);

}  // namespace ov
