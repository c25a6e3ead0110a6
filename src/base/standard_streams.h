// The output of this program: progress lines on standard output, diagnostics on standard error.
#pragma once

namespace ov {

/// Makes every line visible at once on a terminal, a pipe, a file or a journal. Sends Qt's debug
/// and warning messages to standard error as plain UTF-8 lines, and removes the environment
/// variables by which Qt drops them or ends the process. Opens /dev/null for each standard stream
/// that is closed. Call it once, at the start of the process, before any other thread exists.
void SetUpStandardStreams();

}  // namespace ov
