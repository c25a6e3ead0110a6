#include "check/report.h"

#include <QJsonArray>
#include <algorithm>

namespace ov {
namespace {

constexpr char kReset[] = "\x1b[0m";
constexpr char kBold[] = "\x1b[1m";

struct Style {
  const char *name;
  const char *plural;
  const char *colour;
};

const Style &StyleOf(Level level) {
  static constexpr Style kStyles[] = {{"error", "errors", "\x1b[1;31m"},
                                      {"warning", "warnings", "\x1b[1;35m"},
                                      {"note", "notes", "\x1b[1;36m"}};
  return kStyles[static_cast<int>(level)];
}

QByteArray PlaceText(const Place &place) {
  if (place.file.isEmpty()) {
    return QByteArrayLiteral("this machine: ");
  }
  QByteArray text = place.file.toUtf8() + ':';
  if (place.line > 0) {
    text += QByteArray::number(place.line) + ':';
  }
  return text + ' ';
}

// The line of the file with a caret below. Only what a terminal shows as one column stands before
// the caret.
QByteArray SourceText(const Place &place, const char *colour) {
  if (place.line == 0) {
    return {};
  }
  QByteArray before = place.source.left(place.column - 1);
  before.resize(QString::fromUtf8(before).size());
  std::transform(before.begin(), before.end(), before.begin(),
                 [](char character) { return character == '\t' ? '\t' : ' '; });
  QByteArray line = place.source;
  std::replace_if(
      line.begin(), line.end(),
      [](char character) { return character != '\t' && (character & 0xE0) == 0; }, '?');
  return "    " + line + "\n    " + before + colour + '^' + kReset + '\n';
}

QByteArray CountText(int count, const Style &style) {
  return QByteArray::number(count) + ' ' + (count == 1 ? style.name : style.plural);
}

}  // namespace

QByteArray FindingsAsText(const Findings &findings, bool isTerminal) {
  QByteArray text;
  for (const Finding &finding : findings.Sorted()) {
    const Style &style = StyleOf(finding.level);
    const QByteArray rest = finding.sentence.toUtf8() + " [" + finding.cause->name + "]\n";
    if (isTerminal) {
      text += kBold + PlaceText(finding.place) + style.colour + style.name + ": " + kReset + rest +
              SourceText(finding.place, style.colour);
    } else {
      text += PlaceText(finding.place) + style.name + ": " + rest;
    }
  }
  return text + CountText(findings.Count(Level::kError), StyleOf(Level::kError)) + ", " +
         CountText(findings.Count(Level::kWarning), StyleOf(Level::kWarning)) + ", " +
         CountText(findings.Count(Level::kNote), StyleOf(Level::kNote)) + '\n';
}

void AddFindings(const Findings &findings, QJsonObject &document) {
  QJsonArray list;
  for (const Finding &finding : findings.Sorted()) {
    QJsonObject object{{QStringLiteral("level"), QLatin1String(StyleOf(finding.level).name)},
                       {QStringLiteral("cause"), QLatin1String(finding.cause->name)},
                       {QStringLiteral("sentence"), finding.sentence},
                       {QStringLiteral("events"), QJsonArray::fromStringList(finding.events)}};
    if (!finding.place.file.isEmpty()) {
      object.insert(QStringLiteral("file"), finding.place.file);
    }
    if (finding.place.line > 0) {
      object.insert(QStringLiteral("line"), finding.place.line);
      object.insert(QStringLiteral("column"), finding.place.column);
    }
    list.append(object);
  }
  QJsonObject counts;
  for (const Level level : {Level::kError, Level::kWarning, Level::kNote}) {
    counts.insert(QLatin1String(StyleOf(level).plural), findings.Count(level));
  }
  document.insert(QStringLiteral("findings"), list);
  document.insert(QStringLiteral("counts"), counts);
}

}  // namespace ov
