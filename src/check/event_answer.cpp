#include "check/event_answer.h"

#include <QJsonArray>

#include "check/line_maker.h"
#include "output/message_formatter.h"

namespace ov {
namespace {

// Names of the facilities 0 to 23, as syslog.h and RFC 5424, section 6.2.1, have them.
constexpr const char *kFacilities[] = {
    "kern",   "user",   "mail",     "daemon", "auth",   "syslog", "lpr",    "news",
    "uucp",   "cron",   "authpriv", "ftp",    "ntp",    "audit",  "alert",  "clock",
    "local0", "local1", "local2",   "local3", "local4", "local5", "local6", "local7"};

QString Text(std::string_view bytes) {
  return QString::fromUtf8(bytes.data(), static_cast<int>(bytes.size()));
}

// What a collector takes the priority for: three bits of severity below the facility.
QString PriorityName(std::int32_t priority) {
  constexpr std::int32_t kSeverities = 8;
  const std::int32_t facility = priority / kSeverities;
  if (priority < 0 || facility >= static_cast<std::int32_t>(std::size(kFacilities))) {
    return QStringLiteral("no priority that a collector knows");
  }
  const std::string_view severity =
      kSeverityNames[static_cast<std::size_t>(priority % kSeverities)];
  return QStringLiteral("%1.%2").arg(QLatin1String(kFacilities[facility]), Text(severity));
}

QString FileAndLine(const Place &place) {
  return place.line > 0 ? QStringLiteral("%1:%2").arg(place.file, QString::number(place.line))
                        : place.file;
}

// What one collector stores.
QString StoredText(const QString &table, const QStringList &differences) {
  return table + QLatin1String(": ") +
         (differences.isEmpty() ? QStringLiteral("each field as sent")
                                : differences.join(QLatin1String("; ")));
}

QByteArray Row(const char *name, const QString &text) {
  return QByteArray(name).leftJustified(12) + text.toUtf8() + '\n';
}

}  // namespace

EventAnswer AnswerFor(const QByteArray &id, const QByteArray &values, const SettingsFile &settings,
                      const DefinitionsFile &definitions, const HostIdentity &host) {
  EventAnswer answer{};
  answer.record = MakeEventRecord(id.constData(), values.constData());
  const std::string_view idText = EventIdText(answer.record);
  const std::string_view valuesText = EventValuesText(answer.record);
  // The service looks identifiers up byte by byte.
  answer.id = QString::fromLatin1(idText.data(), static_cast<int>(idText.size()));
  answer.values = Text(valuesText);
  answer.isCut = static_cast<int>(idText.size()) < id.size() ||
                 static_cast<int>(valuesText.size()) < values.size();
  answer.definition = definitions.LineOf(answer.id);
  answer.definitionsPath = definitions.Path();
  answer.isAllowed = settings.InForce().isAllowed(idText);
  answer.allowedPlace = settings.PlaceOfKey(QStringLiteral("allowed"));
  answer.protocol = settings.InForce().protocol();
  answer.facility = settings.InForce().facility();
  if (answer.definition == nullptr) {
    answer.meant = definitions.Meant(answer.id);
  }
  if (answer.IsForwarded()) {
    const EventDefinition definition = DefinitionFrom(*answer.definition);
    answer.severity = definition.severity;
    answer.priority = FormatPriority(answer.facility, answer.severity).toInt();
    answer.line = LineMaker(settings.InForce(), host).LineFor(answer.record, definition);
    answer.stored =
        StoredAnswerFor({settings.InForce().formatString(), answer.protocol == Protocol::kTcp,
                         QByteArray(valuesText.data(), static_cast<int>(valuesText.size())),
                         definition.description.toUtf8(), answer.facility, answer.severity,
                         host.name, MonthNotInEnglish().english.isEmpty()});
  }
  return answer;
}

QByteArray AsText(const EventAnswer &answer) {
  QByteArray text = Row(
      "record", QStringLiteral("identifier %1, values %2%3")
                    .arg(Quoted(answer.id), Quoted(answer.values),
                         answer.isCut ? QStringLiteral(", cut to the 7 and 127 bytes of a record")
                                      : QString()));
  text += Row("definition",
              answer.definition == nullptr
                  ? QStringLiteral("none in ") + answer.definitionsPath +
                        (answer.meant.isEmpty() ? QString()
                                                : QStringLiteral("; is it %1?").arg(answer.meant))
                  : QStringLiteral("%1:%2: %3")
                        .arg(answer.definitionsPath, QString::number(answer.definition->number),
                             Printable(answer.definition->text)));
  text += Row("allowed", QStringLiteral("%1, %2").arg(
                             answer.isAllowed ? QStringLiteral("yes") : QStringLiteral("no"),
                             FileAndLine(answer.allowedPlace)));
  text += Row(
      "forwarded",
      answer.definition == nullptr
          ? (answer.isAllowed ? QStringLiteral("no: define it, and restart the service")
                              : QStringLiteral("no: define it, add it to `allowed`, and "
                                               "restart the service"))
          : (answer.isAllowed ? QStringLiteral("yes") : QStringLiteral("no: add it to `allowed`")));
  if (answer.IsForwarded()) {
    text += Row("priority", QStringLiteral("%1: %2").arg(QString::number(answer.priority),
                                                         PriorityName(answer.priority)));
    const bool isTcp = answer.protocol == Protocol::kTcp;
    text += Row("length", QStringLiteral("%1 bytes over %2")
                              .arg(QString::number(answer.line.size()),
                                   isTcp ? QStringLiteral("TCP, the line feed included")
                                         : QStringLiteral("UDP")));
    text += QByteArray("line").leftJustified(12) + answer.line + (isTcp ? "" : "\n");
    if (answer.stored) {
      text += Row("rsyslog", StoredText(answer.stored->table, answer.stored->rsyslog));
      text += Row("syslog-ng", StoredText(answer.stored->table, answer.stored->syslogNg));
    } else {
      text += Row("collectors", QStringLiteral("no table tells what they store of this template"));
    }
  }
  return text;
}

QJsonObject AsJson(const EventAnswer &answer) {
  QJsonObject object{{QStringLiteral("id"), answer.id},
                     {QStringLiteral("values"), answer.values},
                     {QStringLiteral("cut"), answer.isCut},
                     {QStringLiteral("defined"), answer.definition != nullptr},
                     {QStringLiteral("allowed"), answer.isAllowed},
                     {QStringLiteral("forwarded"), answer.IsForwarded()}};
  if (!answer.meant.isEmpty()) {
    object.insert(QStringLiteral("meant"), answer.meant);
  }
  if (answer.definition != nullptr) {
    object.insert(QStringLiteral("definitionLine"), answer.definition->number);
  }
  if (answer.allowedPlace.line > 0) {
    object.insert(QStringLiteral("allowedLine"), answer.allowedPlace.line);
  }
  if (answer.IsForwarded()) {
    object.insert(QStringLiteral("line"), QString::fromUtf8(answer.line));
    object.insert(QStringLiteral("length"), answer.line.size());
    object.insert(QStringLiteral("priority"), answer.priority);
    object.insert(QStringLiteral("facility"), answer.facility);
    object.insert(QStringLiteral("severity"), answer.severity);
  }
  if (answer.stored) {
    object.insert(
        QStringLiteral("stored"),
        QJsonObject{
            {QStringLiteral("table"), answer.stored->table},
            {QStringLiteral("rsyslog"), QJsonArray::fromStringList(answer.stored->rsyslog)},
            {QStringLiteral("syslog-ng"), QJsonArray::fromStringList(answer.stored->syslogNg)}});
  }
  return object;
}

}  // namespace ov
