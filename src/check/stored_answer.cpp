#include "check/stored_answer.h"

#include <QFile>
#include <algorithm>

#include "event/event_definition.h"

namespace ov {

const char kRecommendedTemplate[] =
    "<[PRI]>1 - [NAME] ov-event-logger - [ID] "
    "[ev@32473 ip=\"[IP]\" sev=\"[SEV]\" at=\"[DATE]\" desc=\"[DESC]\"] [VAL]";

namespace {

constexpr struct {
  const char *table;
  const char *formatString;
} kTables[] = {{"Recommended line", kRecommendedTemplate},
               {"Default line", "<[PRI]> [DATE] [NAME]([IP]): [ID] [DESC] - [VAL] ([SEV])"},
               {"RFC 3164", "<[PRI]>[DATE] [NAME] ov-event-logger: [ID] [DESC] - [VAL] ([SEV])"}};

// The cases of a text, which is the values or the description. Of the tables' cases those are here
// that make a difference somewhere.
constexpr struct {
  const char *name;
  bool (*holds)(const QByteArray &text);
} kTextCases[] = {{"quote", [](const QByteArray &text) { return text.contains('"'); }},
                  {"bracket", [](const QByteArray &text) { return text.contains(']'); }},
                  {"dash", [](const QByteArray &text) { return text.contains(" - "); }},
                  {"control character", [](const QByteArray &text) {
                     return std::any_of(text.cbegin(), text.cend(), [](char byte) {
                       return (byte >= '\0' && byte < ' ' && byte != '\n') || byte == '\x7F';
                     });
                   }}};

// The names of the cases that hold.
QStringList CasesOf(const SentEvent &event) {
  QStringList cases;
  for (const auto &textCase : kTextCases) {
    for (const auto &[text, place] :
         {std::pair(event.values, " in values"), std::pair(event.description, " in description")}) {
      if (textCase.holds(text)) {
        cases.append(QLatin1String(textCase.name) + QLatin1String(place));
      }
    }
  }
  const auto add = [&cases](bool holds, const char *name) {
    if (holds) {
      cases.append(QLatin1String(name));
    }
  };
  const bool isUnknown = event.severity == kUnknownSeverity;
  const bool isForged = event.values.contains("\n<");
  add(event.description.endsWith('\\'), "backslash at end of description");
  add(event.values.contains('\n') && !isForged, "line feed in values");
  add(isForged, "line of another event in values");
  add(event.values.endsWith(' '), "blanks behind values");
  add(isUnknown && event.facility != 0, "unknown severity");
  add(isUnknown && event.facility == 0, "facility 0 and unknown severity");
  add(!event.hasEnglishMonths, "months of another language");
  add(event.hostName == QLatin1String("(none)"), "name (none)");
  add(event.hostName.isEmpty(), "empty name");
  return cases;
}

// The rows below a heading of docs/COLLECTORS.md, each as its cells.
QList<QStringList> RowsBelow(const QString &heading) {
  QFile file(QStringLiteral(":/COLLECTORS.md"));
  file.open(QIODevice::ReadOnly);
  const QString text = QString::fromUtf8(file.readAll());
  const QStringList lines = text.section(QStringLiteral("\n### %1\n").arg(heading), 1)
                                .section(QLatin1String("\n#"), 0, 0)
                                .split(QLatin1Char('\n'));
  QList<QStringList> rows;
  for (const QString &line : lines) {
    if (line.startsWith(QLatin1String("| "))) {
      rows.append(line.mid(2).chopped(2).split(QLatin1String(" | ")));
    }
  }
  return rows;
}

// What the tables sent in this case.
QString Example(const QString &name) {
  for (const QStringList &row : RowsBelow(QStringLiteral("Cases"))) {
    if (row[0] == name) {
      return row[1];
    }
  }
  return {};
}

void AddOutcome(const QString &name, QString cell, QStringList &outcomes) {
  if (cell != QLatin1String("as sent")) {
    outcomes.append(QStringLiteral("%1, such as %2: ").arg(name, Example(name)) +
                    cell.remove(QLatin1String("**")));
  }
}

}  // namespace

std::optional<StoredAnswer> StoredAnswerFor(const SentEvent &event) {
  const auto *const known =
      std::find_if(std::begin(kTables), std::end(kTables), [&event](const auto &table) {
        return event.formatString == QLatin1String(table.formatString);
      });
  if (known == std::end(kTables)) {
    return std::nullopt;
  }
  StoredAnswer answer{QLatin1String(known->table), {}, {}};
  const QStringList cases = CasesOf(event);
  const QString transport = event.isTcp ? QStringLiteral("TCP") : QStringLiteral("UDP");
  // Case, transport, two outcomes.
  for (const QStringList &row : RowsBelow(answer.table)) {
    if (cases.contains(row[0]) && (row[1] == transport || row[1] == QLatin1String("both"))) {
      AddOutcome(row[0], row[2], answer.rsyslog);
      AddOutcome(row[0], row[3], answer.syslogNg);
    }
  }
  return answer;
}

}  // namespace ov
