// How this program speaks: progress lines on standard output, diagnostics on standard error.
// Call once, at the start of the process, before any other thread exists.
#pragma once

namespace ov {

/// Makes every line visible at once, whether standard output is a terminal, a pipe, a file or a
/// journal, and sends Qt's debug and warning messages to standard error as plain UTF-8 lines
/// (left to itself, Qt may send them to the system journal instead). Variables of the environment
/// by which Qt would drop them, or end the process at one, are removed. A stream that whoever
/// started the program had closed leads nowhere, and not to the first socket.
void SetUpStandardStreams();

}  // namespace ov
