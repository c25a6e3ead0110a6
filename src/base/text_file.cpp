#include "base/text_file.h"

#include <QByteArray>

namespace ov {

bool ReadLine(QFile &file, QString &line) {
  QByteArray bytes = file.readLine();
  // Text mode leaves a carriage return that does not stand before a line feed, though not all of
  // them: those that end the file may be gone.
  if (bytes.contains('\r')) {
    bytes.replace('\r', "");
  }
  if (bytes.isEmpty()) {
    return false;
  }
  if (bytes.endsWith('\n')) {
    bytes.chop(1);
  }
  line = QString::fromUtf8(bytes.constData(), bytes.size());
  return true;
}

}  // namespace ov
