#include "check/definitions_file.h"

#include <QFileInfo>
#include <QRegularExpression>

#include "service/event_catalogue.h"

namespace ov {

bool DefinitionsLine::IsDefinition() const { return columns.size() >= kDefinitionColumns; }

DefinitionsFile::DefinitionsFile(const QString &path)
    : path_(path), exists_(QFileInfo::exists(path)) {
  // A pipe must not block this program.
  isReadable_ = QFileInfo(path).isFile() && ReadDefinitionLines(path, [this](const QString &text) {
                  lines_.append({lines_.size() + 1, text, DefinitionColumns(text)});
                });
  for (int index = 0; index < lines_.size(); ++index) {
    const DefinitionsLine &line = lines_[index];
    if (line.IsDefinition()) {
      if (!lineOfId_.contains(line.Id())) {
        ids_.append(line.Id());
      }
      lineOfId_.insert(line.Id(), index);
    }
  }
}

const DefinitionsLine *DefinitionsFile::LineOf(const QString &id) const {
  const auto found = lineOfId_.constFind(id);
  return found == lineOfId_.cend() ? nullptr : &lines_.at(*found);
}

Place DefinitionsFile::PlaceOf(const DefinitionsLine &line, int column) const {
  int start = 0;
  for (int i = 0; i < column && start < line.text.size(); ++i) {
    const int comma = line.text.indexOf(QLatin1Char(','), start);
    start = comma < 0 ? line.text.size() : comma + 1;
  }
  while (start < line.text.size() && line.text[start].isSpace()) {
    ++start;
  }
  return {path_, line.number, line.text.left(start).toUtf8().size() + 1, line.text.toUtf8()};
}

QString DefinitionsFile::Meant(const QString &id) const {
  const auto digits = [](QString text) {
    return text.remove(QRegularExpression(QStringLiteral("[^0-9]")));
  };
  QStringList candidates;
  for (const QString &candidate : ids_) {
    if (digits(candidate) == digits(id)) {
      candidates.append(candidate);
    }
  }
  return ClosestTo(id, candidates);
}

EventDefinition DefinitionFrom(const DefinitionsLine &line) {
  EventDefinition definition;
  definition.id = line.columns[0];
  definition.label = line.columns[1];
  definition.description = line.columns[2];
  definition.severityName = line.columns[3];
  definition.severity = FindSeverity(line.columns[3].toStdString());
  return definition;
}

}  // namespace ov
