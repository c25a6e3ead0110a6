// The command line: chooses the role of the process. Called by main.
#pragma once

namespace ov {

/// Runs what the arguments ask for and returns the exit status: 0 after it sent an event, 1 after
/// it reported a usage error on standard error. The service role does not return.
int RunCommandLine(int argc, char *argv[]);

}  // namespace ov
