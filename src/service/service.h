// The service role of the program.
#pragma once

namespace ov {

/// Loads the event definitions, once, and runs one run cycle after another on the calling thread.
/// Ends the process with status 1 if a cycle cannot set up.
[[noreturn]] void RunService();

}  // namespace ov
