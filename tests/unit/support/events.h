// The events that wait in the process-wide queue.
#pragma once

#include <string>
#include <utility>
#include <vector>

namespace ov {

/// Identifiers and values, oldest first.
using Events = std::vector<std::pair<std::string, std::string>>;

/// Empties the queue. Fails the test unless each record is, in every byte, one that was made of its
/// texts within the last minute.
Events TakeEvents();

}  // namespace ov
