// The encoding of file names and of the host's name: UTF-8 in every locale.
#pragma once

namespace ov {

/// Makes Qt use UTF-8 as the encoding of the locale. Qt's own choice is a codec of the ICU library,
/// whose tables stay resident (about a megabyte). Call it once, on the main thread, before any file
/// is opened. The codec converts whole texts only: do not read a file through a QTextStream.
void UseUtf8ForNames();

}  // namespace ov
