#include "service/event_catalogue.h"

#include <QByteArray>
#include <QDebug>
#include <QFile>
#include <QStringList>
#include <QTextStream>
#include <cstdio>

namespace ov {
namespace {

constexpr int kColumns = 4;

void AddLine(const QString &line, EventDefinitions &definitions) {
  if (line.startsWith(QLatin1Char('#'))) {
    return;
  }
  const QStringList columns = line.split(QLatin1Char(','));
  if (columns.size() < kColumns) {
    qWarning() << "Invalid line format:" << line;
    return;
  }
  const EventDefinition definition(columns[0].trimmed(), columns[1].trimmed(), columns[2].trimmed(),
                                   columns[3].trimmed());
  definitions.insert(definition.id, definition);
}

QString KeyOf(std::string_view id) {
  return QString::fromLatin1(id.data(), static_cast<int>(id.size()));
}

}  // namespace

EventDefinitions loadEventDefinitions() {
  EventDefinitions definitions;
  std::puts("loading Event definitions...");

  const char *path = kSystemDefinitionsPath;
  if (!QFile::exists(QLatin1String(path))) {
    path = kFallbackDefinitionsPath;
    if (!QFile::exists(QLatin1String(path))) {
      return definitions;
    }
  }
  std::printf("loading %s\n", path);

  QFile file{QLatin1String(path)};
  if (!file.open(QIODevice::ReadOnly | QIODevice::Text)) {
    // The message names the system file even if it is the fallback that does not open.
    qWarning() << "Unable to open file:" << kSystemDefinitionsPath;
    return definitions;
  }
  const QByteArray bytes = file.readAll();
  QString text = QString::fromUtf8(bytes.constData(), bytes.size());
  QTextStream lines(&text);
  QString line;
  while (lines.readLineInto(&line)) {
    AddLine(line, definitions);
  }
  return definitions;
}

void EventCatalogue::Replace(const EventDefinitions &definitions) {
  const std::lock_guard<std::mutex> lock(mutex_);
  definitions_ = definitions;
}

bool EventCatalogue::IsDefined(std::string_view id) const {
  const std::lock_guard<std::mutex> lock(mutex_);
  return definitions_.contains(KeyOf(id));
}

EventDefinition EventCatalogue::FindOrInsert(std::string_view id) {
  const std::lock_guard<std::mutex> lock(mutex_);
  return definitions_[KeyOf(id)];
}

}  // namespace ov
