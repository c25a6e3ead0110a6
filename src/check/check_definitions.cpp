#include "check/check_definitions.h"

#include <QFile>
#include <QFileInfo>
#include <QRegularExpression>
#include <algorithm>

#include "event/event_record.h"
#include "service/event_catalogue.h"

namespace ov {
namespace {

class DefinitionsCheck {
 public:
  DefinitionsCheck(const DefinitionsFile &file, Findings &findings)
      : file_(file), findings_(findings) {}

  void CheckAll() {
    const Place whole{file_.Path(), 0, 0, {}};
    if (!file_.Exists()) {
      findings_.Add("no-definitions", whole,
                    QStringLiteral("there is no such file: no event is defined, and the service "
                                   "drops every event. Install one"));
      return;
    }
    if (!file_.IsReadable()) {
      findings_.Add(
          "unreadable-definitions", whole,
          QStringLiteral("this is no file that can be read: for a service that cannot read "
                         "it either no event is defined. Write one with mode 0644"));
      return;
    }
    const QString fallback = QLatin1String(kFallbackDefinitionsPath);
    const auto target = [](const QString &path) { return QFileInfo(path).canonicalFilePath(); };
    if (file_.Path() == QLatin1String(kSystemDefinitionsPath) && QFile::exists(fallback) &&
        target(fallback) != target(file_.Path())) {
      findings_.Add(
          "fallback-unused", {fallback, 0, 0, {}},
          QStringLiteral("the service does not read this file, since %1 exists").arg(file_.Path()));
    }
    for (const DefinitionsLine &line : file_.Lines()) {
      CheckLine(line);
    }
  }

 private:
  void CheckLine(const DefinitionsLine &line) {
    if (line.columns.isEmpty()) {
      return;
    }
    static const QRegularExpression kMeantAsComment(QStringLiteral("^\\s*#|^\\s*;|^\\s*//"));
    if (line.text.contains(kMeantAsComment)) {
      Add("indented-comment", line, 0,
          QStringLiteral("a comment begins with \"#\" in the first column: the service takes this "
                         "line for a definition. Begin it so"));
      return;
    }
    if (!line.IsDefinition()) {
      if (!line.text.trimmed().isEmpty()) {
        Add("too-few-columns", line, 0,
            QStringLiteral("the line has %1 of 4 columns, and the service passes over it. Write "
                           "identifier, label, description and severity, with commas between them")
                .arg(line.columns.size()));
      }
      return;
    }
    if (IsHeader(line)) {
      Add("header-row", line, 0,
          QStringLiteral("the service takes this line for the definition of an event %1. Put a "
                         "\"#\" before it")
              .arg(Quoted(line.Id())));
      return;
    }
    CheckId(line);
    const DefinitionsLine *const last = file_.LineOf(line.Id());
    if (last != &line) {
      Add("repeated-id", line, 0,
          QStringLiteral(
              "line %1 defines %2 once more, and the last line holds. Remove one of them")
              .arg(QString::number(last->number), Quoted(line.Id())));
      return;
    }
    if (line.columns.size() > kDefinitionColumns) {
      Add("too-many-columns", line, kDefinitionColumns,
          QStringLiteral("the line has %1 columns, and the service takes the fourth, %2, for the "
                         "severity. Remove the comma from the text: quotes do not help")
              .arg(QString::number(line.columns.size()), Quoted(line.SeverityName())));
    } else {
      CheckSeverity(line);
    }
  }

  // Whether it names its columns by words of the usual kind.
  static bool IsHeader(const DefinitionsLine &line) {
    static const QRegularExpression kIdName(
        QStringLiteral("^(event[ _-]?)?(id|identifier|code)$|^event$"),
        QRegularExpression::CaseInsensitiveOption);
    static const QRegularExpression kSeverityName(QStringLiteral("^(severity|level|priority)"),
                                                  QRegularExpression::CaseInsensitiveOption);
    return FindSeverity(line.SeverityName().toStdString()) == kUnknownSeverity &&
           (line.Id().contains(kIdName) || line.SeverityName().contains(kSeverityName));
  }

  void CheckId(const DefinitionsLine &line) {
    const QString &id = line.Id();
    const bool isAscii = std::all_of(id.begin(), id.end(), [](QChar character) {
      return character > QLatin1Char(' ') && character < QChar(0x7F) &&
             character != QLatin1Char('"');
    });
    constexpr int kMost = static_cast<int>(kEventIdSize) - 1;
    if (id.isEmpty()) {
      Add("bad-id", line, 0,
          QStringLiteral("the identifier is empty: `allowed` cannot name the event. Write one of 1 "
                         "to %1 letters and digits")
              .arg(kMost));
    } else if (!isAscii) {
      Add("bad-id", line, 0,
          QStringLiteral(
              "%1 holds a blank, a control character, a double quote or a character beyond "
              "ASCII: `allowed` separates at blanks, double quotes are part of the text "
              "here, and a record names an event by bytes of Latin-1. Use letters and "
              "digits alone")
              .arg(Quoted(id)));
    } else if (id.size() > kMost) {
      Add("bad-id", line, 0,
          QStringLiteral("%1 is longer than %2 bytes: a record holds %3 instead, and nobody can "
                         "raise this event. "
                         "Use a shorter identifier")
              .arg(Quoted(id), QString::number(kMost), Quoted(id.left(kMost))));
    }
  }

  void CheckSeverity(const DefinitionsLine &line) {
    const QString &name = line.SeverityName();
    if (FindSeverity(name.toStdString()) != kUnknownSeverity) {
      return;
    }
    QStringList names;
    for (const std::string_view known : kSeverityNames) {
      names.append(QString::fromLatin1(known.data(), static_cast<int>(known.size())));
    }
    bool isNumber = false;
    const int number = name.toInt(&isNumber);
    const QString meant = isNumber ? names.value(number) : ClosestTo(name, names);
    Add("unknown-severity", line, 3,
        QStringLiteral(
            "the service does not know the severity %1 and counts it as -1: the priority "
            "is one below that of emerg. Write %2")
            .arg(Quoted(name), meant.isEmpty()
                                   ? QStringLiteral("one of ") + names.join(QLatin1Char(' '))
                                   : meant));
  }

  void Add(const char *cause, const DefinitionsLine &line, int column, const QString &sentence) {
    findings_.Add(cause, file_.PlaceOf(line, column), sentence,
                  line.IsDefinition() ? QStringList{line.Id(), line.Id().left(7)}
                                      : QStringList{line.columns[0]});
  }

  const DefinitionsFile &file_;
  Findings &findings_;
};

}  // namespace

void CheckDefinitions(const DefinitionsFile &definitions, Findings &findings) {
  DefinitionsCheck(definitions, findings).CheckAll();
}

}  // namespace ov
