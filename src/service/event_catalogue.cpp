#include "service/event_catalogue.h"

#include <QByteArray>
#include <QDebug>
#include <QFile>
#include <QStringList>
#include <QTextStream>
#include <cstdio>

namespace ov {
namespace {

void AddLine(const QString &line, EventDefinitions &definitions) {
  const QStringList columns = DefinitionColumns(line);
  if (columns.isEmpty()) {
    return;
  }
  if (columns.size() < kDefinitionColumns) {
    qWarning() << "Invalid line format:" << line;
    return;
  }
  const EventDefinition definition(columns[0], columns[1], columns[2], columns[3]);
  definitions.insert(definition.id, definition);
}

QString KeyOf(std::string_view id) {
  return QString::fromLatin1(id.data(), static_cast<int>(id.size()));
}

}  // namespace

const char *FindDefinitionsFile() {
  for (const char *path : {kSystemDefinitionsPath, kFallbackDefinitionsPath}) {
    if (QFile::exists(QLatin1String(path))) {
      return path;
    }
  }
  return nullptr;
}

bool ReadDefinitionLines(const QString &path, const std::function<void(const QString &)> &take) {
  QFile file(path);
  if (!file.open(QIODevice::ReadOnly | QIODevice::Text)) {
    return false;
  }
  const QByteArray bytes = file.readAll();
  QString text = QString::fromUtf8(bytes.constData(), bytes.size());
  QTextStream lines(&text);
  QString line;
  while (lines.readLineInto(&line)) {
    take(line);
  }
  return true;
}

QStringList DefinitionColumns(const QString &line) {
  if (line.startsWith(QLatin1Char('#'))) {
    return {};
  }
  QStringList columns = line.split(QLatin1Char(','));
  for (QString &column : columns) {
    column = column.trimmed();
  }
  return columns;
}

EventDefinitions loadEventDefinitions() {
  EventDefinitions definitions;
  std::puts("loading Event definitions...");
  const char *const path = FindDefinitionsFile();
  if (path == nullptr) {
    return definitions;
  }
  std::printf("loading %s\n", path);
  if (!ReadDefinitionLines(QLatin1String(path),
                           [&definitions](const QString &line) { AddLine(line, definitions); })) {
    // The message names the system file even if it is the fallback that does not open.
    qWarning() << "Unable to open file:" << kSystemDefinitionsPath;
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
