// The command line of ov-event-check.
#pragma once

namespace ov {

/// Answers the question of the arguments on standard output. Returns 0 without an error or a
/// warning, 1 with some, and 2 for a wrong usage or a named file that cannot be read.
int RunCheckCommand(int argc, char *argv[]);

}  // namespace ov
