// Reads text files: UTF-8, whatever the locale. May be called from any thread.
#pragma once

#include <QFile>
#include <QString>

namespace ov {

/// The next line of a file that was opened in text mode, without its end and without carriage
/// returns. A byte order mark at the line's start is dropped; bytes that are no UTF-8 become
/// U+FFFD.
QString ReadLine(QFile &file);

}  // namespace ov
