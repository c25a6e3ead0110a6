// The encoding of file names and of the host's name: UTF-8, whatever the locale says.
#pragma once

namespace ov {

/// Makes UTF-8 what Qt takes the locale's encoding to be. Left to itself, Qt asks the ICU library
/// for a codec, whose tables stay resident (over a megabyte). Call once, on the main thread, before
/// anything else of Qt that deals with files. For whole texts only: what converts a file piece by
/// piece (QTextStream) must be told a codec, or loses the characters at the seams.
void UseUtf8ForNames();

}  // namespace ov
