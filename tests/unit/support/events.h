// The events that wait in the process-wide queue.
#pragma once

#include <string>

namespace ov {

/// Empties the queue and returns "<id> <values>|" for each event, oldest first. Fails the test
/// unless each record is, in every byte, one that was made of its texts within the last two
/// minutes.
std::string TakeEvents();

}  // namespace ov
