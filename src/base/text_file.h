// Reads text files line by line: UTF-8, whatever the locale, and without a text stream, which would
// load the ICU library's tables. May be called from any thread.
#pragma once

#include <QFile>
#include <QString>

namespace ov {

/// Reads the next line of a file that was opened in text mode, without its end and without
/// carriage returns, which make no line of their own at the end. A byte order mark at the line's
/// start is dropped; bytes that are no UTF-8 become U+FFFD. False at the end of the file, and when
/// it cannot be read any further.
bool ReadLine(QFile &file, QString &line);

}  // namespace ov
