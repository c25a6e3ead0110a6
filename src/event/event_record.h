// The event record: the one unit of data that travels through the system. A connection carries one
// record, and the queue holds records, both as they lie in memory, in the host's byte order. Any
// thread may call these functions.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <string_view>

namespace ov {

constexpr std::size_t kEventRecordSize = 144;  // bytes
constexpr std::size_t kEventIdSize = 8;        // bytes, the last one a NUL
constexpr std::size_t kEventValuesSize = 128;  // bytes, the last one a NUL

/// One event. `id` or `values` of a record from another program may lack a NUL: read them with
/// EventIdText and EventValuesText, which stay inside the record.
struct EventRecord {
  std::array<char, kEventIdSize> id;
  std::array<char, kEventValuesSize> values;  ///< comma-separated, as one text
  std::int64_t time;                          ///< seconds since the Unix epoch
};

static_assert(sizeof(EventRecord) == kEventRecordSize);
static_assert(offsetof(EventRecord, id) == 0);
static_assert(offsetof(EventRecord, values) == 8);
static_assert(offsetof(EventRecord, time) == 136);

/// Makes a record with the current time. Cuts `id` to 7 and `values` to 127 bytes, silently.
/// `values` may be null for an event without values. Sets every byte of the record.
EventRecord MakeEventRecord(const char *id, const char *values);

/// Sets every byte of the record to zero.
void ClearEventRecord(EventRecord &record);

/// Prints "Event [<id>] (<values>) at <time>", the time as an unsigned number, on standard output.
void PrintEventRecord(const EventRecord &record);

/// The identifier up to its NUL. An identifier without one goes on into the values, at most to the
/// end of the record. The view is into `record`.
std::string_view EventIdText(const EventRecord &record);

/// The values up to their NUL. Values without one go on into the time. The view is into `record`.
std::string_view EventValuesText(const EventRecord &record);

}  // namespace ov
