#include "base/text_file.h"

#include <QByteArray>

namespace ov {

bool ReadLine(QFile &file, QString &line) {
  QByteArray bytes = file.readLine();
  if (bytes.isEmpty()) {
    return false;
  }
  if (bytes.endsWith('\n')) {
    bytes.chop(1);
  }
  // Text mode leaves a carriage return that does not stand before a line feed.
  if (bytes.contains('\r')) {
    bytes.replace('\r', "");
  }
  line = QString::fromUtf8(bytes.constData(), bytes.size());
  return true;
}

}  // namespace ov
