#include "check/check_allowed.h"

#include <QRegularExpression>
#include <QSet>

#include "check/built_in_monitors.h"

namespace ov {
namespace {

class AllowedCheck {
 public:
  AllowedCheck(const SettingsFile &file, const DefinitionsFile &definitions, Findings &findings)
      : file_(file), definitions_(definitions), findings_(findings) {}

  void CheckIds() {
    const QString key = QStringLiteral("allowed");
    QSet<QString> allowed = file_.InForce().allowedEvents();
    allowed.remove(QString());
    const SettingsLine *const line = file_.LineOf(key);
    if (line != nullptr && line->UnquotedComma() >= 0) {
      return;  // that is said already
    }
    if (allowed.isEmpty()) {
      Add("nothing-allowed", file_.PlaceOfKey(key),
          QStringLiteral("`allowed` names no event, and the service forwards none. List the "
                         "identifiers with blanks between them"));
      return;
    }
    QStringList ids = allowed.values();
    ids.sort();
    for (const QString &id : qAsConst(ids)) {
      CheckAllowedId(id, file_.PlaceInKey(key, id.toLatin1()));
    }
  }

  void CheckAllowedId(const QString &id, const Place &place) {
    static const QRegularExpression kSeparators(QStringLiteral("[,;\\s]+"));
    const QStringList parts = id.split(kSeparators, Qt::SkipEmptyParts);
    if (id.contains(kSeparators)) {
      Add("allowed-separator", place,
          QStringLiteral(
              "the service takes %1 for one identifier. Separate identifiers by blanks%2")
              .arg(Quoted(id), id.contains(QLatin1Char('\n'))
                                   ? QStringLiteral(", and close every double quote")
                                   : QString()),
          parts);
    } else if (!definitions_.IsReadable() || definitions_.LineOf(id) != nullptr) {
      return;
    } else if (const QString meant = SameButForCase(id); !meant.isEmpty()) {
      Add("allowed-case", place,
          QStringLiteral("no event is defined as %1, but one as %2: capitals count. Write it as it "
                         "is defined")
              .arg(Quoted(id), Quoted(meant)),
          {id, meant});
    } else {
      Add("allowed-not-defined", place,
          QStringLiteral(
              "%1 is not defined in %2: the service drops the event, or, if a monitor "
              "raises it, sends it without description and severity. Define it, or remove "
              "it here%3")
              .arg(Quoted(id), definitions_.Path(), Hint(id)),
          {id});
    }
  }

  QString Hint(const QString &id) const {
    static const QRegularExpression kOther(QStringLiteral("[^A-Za-z0-9]"));
    const QString meant = definitions_.Meant(id);
    if (!meant.isEmpty()) {
      return QStringLiteral(", or write %1").arg(meant);
    }
    if (id.startsWith(QLatin1Char('#'))) {
      return QStringLiteral(": a comment begins with \";\"");
    }
    return id.contains(kOther) ? QStringLiteral(
                                     ": identifiers stand without quotes, and there is no "
                                     "wildcard")
                               : QString();
  }

  QString SameButForCase(const QString &id) const {
    for (const QString &defined : definitions_.Ids()) {
      if (defined.compare(id, Qt::CaseInsensitive) == 0) {
        return defined;
      }
    }
    return {};
  }

  void CheckMonitors() {
    for (const BuiltInMonitor &monitor : BuiltInMonitors()) {
      CheckMonitor(monitor);
    }
  }

  void CheckMonitor(const BuiltInMonitor &monitor) {
    QStringList allowed;
    for (const QString &id : monitor.events) {
      if (file_.InForce().allowedEvents().contains(id)) {
        allowed.append(id);
      }
    }
    const bool isOn = (file_.InForce().*monitor.isOn)();
    if (isOn && allowed.isEmpty()) {
      Add("monitor-without-event", file_.PlaceOfKey(monitor.key),
          QStringLiteral("`%1` is on, but `allowed` names none of its events %2: the monitor costs "
                         "time and raises nothing. Allow them, or switch it off")
              .arg(monitor.key, monitor.events.join(QLatin1Char(' '))),
          monitor.events);
    }
    if (!isOn) {
      for (const QString &id : qAsConst(allowed)) {
        Add("event-without-monitor", file_.PlaceInKey(QStringLiteral("allowed"), id.toLatin1()),
            QStringLiteral("%1 is allowed, but `%2`, the monitor that raises it, is off: only "
                           "`ov-event-logger -e` raises it then")
                .arg(id, monitor.key),
            {id});
      }
    }
  }

 private:
  void Add(const char *cause, const Place &place, const QString &sentence,
           const QStringList &events = {}) {
    findings_.Add(cause, place, sentence, events);
  }

  const SettingsFile &file_;
  const DefinitionsFile &definitions_;
  Findings &findings_;
};

}  // namespace

void CheckAllowed(const SettingsFile &settings, const DefinitionsFile &definitions,
                  Findings &findings) {
  AllowedCheck check(settings, definitions, findings);
  check.CheckIds();
  check.CheckMonitors();
}

}  // namespace ov
