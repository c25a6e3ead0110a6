// The events that a monitor raised.
#pragma once

#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace ov::fuzz {

/// Identifiers and values, oldest first.
using Events = std::vector<std::pair<std::string, std::string>>;

/// Empties the process-wide queue. Fails unless each record holds its texts and otherwise zeros,
/// and the time of the last seconds.
Events TakeEvents();

/// An event as a record holds it: the values up to a zero byte, and at most 127 bytes of them.
Events::value_type EventOf(std::string_view id, std::string_view values);

}  // namespace ov::fuzz
