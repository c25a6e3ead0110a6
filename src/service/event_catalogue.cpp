#include "service/event_catalogue.h"

#include <QByteArray>
#include <QDebug>
#include <QFile>
#include <QStringRef>
#include <QVector>
#include <cstdio>

namespace ov {
namespace {

constexpr int kColumns = 4;

// Without its line feed and without the carriage returns that text mode leaves. What ends in the
// middle of a character, or begins with a byte order mark, is one line's affair.
QString ReadLine(QFile &file) {
  QByteArray bytes = file.readLine();
  if (bytes.endsWith('\n')) {
    bytes.chop(1);
  }
  return QString::fromUtf8(bytes.constData(), bytes.size()).remove(QLatin1Char('\r'));
}

void AddRow(EventCatalogue &catalogue, const QString &line) {
  if (line.startsWith(QLatin1Char('#'))) {
    return;
  }
  const QVector<QStringRef> fields = line.splitRef(QLatin1Char(','));
  if (fields.size() < kColumns) {
    qWarning() << "Invalid line format:" << line;
    return;
  }
  EventDefinition definition(fields[0].trimmed().toString(), fields[1].trimmed().toString(),
                             fields[2].trimmed().toString(), fields[3].trimmed().toString());
  catalogue.insert(definition.id, definition);
}

}  // namespace

EventCatalogue loadEventDefinitions() {
  EventCatalogue catalogue;
  std::puts("loading Event definitions...");

  QString path = QLatin1String(kSystemDefinitionsPath);
  if (!QFile::exists(path)) {
    path = QLatin1String(kFallbackDefinitionsPath);
    if (!QFile::exists(path)) {
      return catalogue;
    }
  }
  std::printf("loading %s\n", path.toUtf8().constData());

  QFile file(path);
  if (!file.open(QIODevice::ReadOnly | QIODevice::Text)) {
    // Names the system file even when the fallback is the one that failed to open.
    qWarning() << "Unable to open file:" << kSystemDefinitionsPath;
    return catalogue;
  }
  while (!file.atEnd()) {
    AddRow(catalogue, ReadLine(file));
  }
  return catalogue;
}

}  // namespace ov
