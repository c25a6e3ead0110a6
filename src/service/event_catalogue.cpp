#include "service/event_catalogue.h"

#include <QDebug>
#include <QFile>
#include <QStringView>
#include <array>
#include <cstdio>
#include <mutex>

#include "base/text_file.h"

namespace ov {
namespace {

constexpr std::size_t kColumns = 4;

using Row = std::array<QStringView, kColumns>;

// Takes the first columns, trimmed. False if the line has fewer.
bool SplitRow(QStringView line, Row &row) {
  qsizetype start = 0;
  for (QStringView &column : row) {
    if (start > line.size()) {
      return false;
    }
    const qsizetype comma = line.indexOf(QLatin1Char(','), start);
    const qsizetype end = comma < 0 ? line.size() : comma;
    column = line.mid(start, end - start).trimmed();
    start = end + 1;
  }
  return true;
}

// Labels and severity names repeat from row to row. Those that do share their memory.
class RepeatedText {
 public:
  const QString &Of(QStringView text) {
    if (text != text_) {
      text_ = text.toString();
    }
    return text_;
  }

 private:
  QString text_;
};

// Puts the lines of the file into the catalogue.
class CatalogueBuilder {
 public:
  explicit CatalogueBuilder(EventCatalogue &catalogue) : catalogue_(catalogue) {}

  void AddLine(const QString &line) {
    if (line.startsWith(QLatin1Char('#'))) {
      return;
    }
    Row row;
    if (!SplitRow(line, row)) {
      qWarning() << "Invalid line format:" << line;
      return;
    }
    const QString id = row[0].toString();
    catalogue_[id] =
        EventDefinition(id, labels_.Of(row[1]), row[2].toString(), severityNames_.Of(row[3]));
  }

 private:
  EventCatalogue &catalogue_;
  RepeatedText labels_;
  RepeatedText severityNames_;
};

// An insertion may move the table from under a reader.
std::mutex catalogueMutex;

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
  CatalogueBuilder builder(catalogue);
  QString line;
  while (ReadLine(file, line)) {
    builder.AddLine(line);
  }
  return catalogue;
}

bool IsDefined(const EventCatalogue &catalogue, const QString &id) {
  const std::lock_guard<std::mutex> lock(catalogueMutex);
  return catalogue.contains(id);
}

const EventDefinition &DefinitionOf(EventCatalogue &catalogue, const QString &id) {
  const std::lock_guard<std::mutex> lock(catalogueMutex);
  return catalogue[id];
}

}  // namespace ov
