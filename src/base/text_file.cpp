#include "base/text_file.h"

#include <QByteArray>

namespace ov {

QString ReadLine(QFile &file) {
  QByteArray bytes = file.readLine();
  if (bytes.endsWith('\n')) {
    bytes.chop(1);
  }
  // Text mode leaves a carriage return that does not stand before a line feed.
  return QString::fromUtf8(bytes.constData(), bytes.size()).remove(QLatin1Char('\r'));
}

}  // namespace ov
