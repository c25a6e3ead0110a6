// The loading of the definitions file. Sections: whether the system file and the fallback exist and
// by how many bytes a comment in front lengthens them (as in "10 0"), the one file, the other.
#include <QMap>

#include "service/event_catalogue.h"
#include "support.h"

namespace ov::fuzz {
namespace {

// Label, description, severity name and severity by identifier.
using Definitions = QMap<QString, QStringList>;

// What loading gives and says.
struct Outcome {
  Definitions definitions;
  QByteArray out = "loading Event definitions...\n";
  QByteArray err;
};

int SeverityOf(const QByteArray &name, QByteArray &err) {
  const QList<QByteArray> names =
      QByteArray("emerg alert crit err warn notice info debug").split(' ');
  const int severity = names.indexOf(name);
  if (severity < 0) {
    err += "Unknown syslog level: " + name + "\n";
  }
  return severity;
}

void AddLine(const QString &line, Outcome &outcome) {
  QStringList columns;
  for (const QString &column : line.split(QLatin1Char(','))) {
    columns.append(column.trimmed());
  }
  if (line.startsWith(QLatin1Char('#'))) {
    return;
  }
  if (columns.size() < 4) {
    outcome.err += "Invalid line format: " + Shown(line).toUtf8() + "\n";
    return;
  }
  const int severity = SeverityOf(UpToNul(columns[3].toUtf8()), outcome.err);
  outcome.definitions[columns[0]] = columns.mid(1, 3) << QString::number(severity);
}

}  // namespace

void Run(const Sections &sections) {
  Options options(sections[0]);
  const bool systemExists = options.Flag();
  const bool fallbackExists = options.Flag();
  QByteArray comment = Padding(options.Number());
  comment = comment.isEmpty() ? comment : "#" + comment.mid(2) + "\n";
  Outcome wanted;
  const auto place = [&](const char *path, bool exists, std::size_t section, bool isRead) {
    const QByteArray file = comment + (section < sections.size() ? sections[section] : "");
    PlaceFile(path, exists, file);
    if (exists && isRead) {
      wanted.out += "loading " + QByteArray(path) + "\n";
      for (const QString &line : FileLines(file)) {
        AddLine(line, wanted);
      }
    }
  };
  place(kSystemDefinitionsPath, systemExists, 1, true);
  place(kFallbackDefinitionsPath, fallbackExists, 2, !systemExists);

  Definitions got;
  for (const EventDefinition &definition : loadEventDefinitions()) {
    got[definition.id] = QStringList{definition.label, definition.description,
                                     definition.severityName, QString::number(definition.severity)};
  }
  ExpectPrinted(wanted.out, wanted.err);
  ExpectSame("definitions", got, wanted.definitions);
}

}  // namespace ov::fuzz
