#include "check/answer.h"

#include <unistd.h>

#include <QJsonDocument>
#include <cstdio>
#include <optional>

#include "check/check_definitions.h"
#include "check/check_machine.h"
#include "check/check_settings.h"
#include "check/check_template.h"
#include "check/definitions_file.h"
#include "check/event_answer.h"
#include "check/finding.h"
#include "check/report.h"
#include "check/service_process.h"
#include "check/settings_answer.h"
#include "check/settings_file.h"
#include "check/try_script.h"
#include "output/host_identity.h"

namespace ov {
namespace {

// NO_COLOR: see no-color.org.
bool HasColours() {
  return isatty(STDOUT_FILENO) != 0 && qEnvironmentVariableIsEmpty("NO_COLOR") &&
         qgetenv("TERM") != "dumb";
}

class Answer {
 public:
  explicit Answer(const Question &question)
      : question_(question),
        service_(question.isOffline ? std::nullopt : FindService()),
        settings_(question.settingsPath),
        definitions_(question.definitionsPath) {
    if (service_) {
      AdoptEnvironment(*service_);
    }
  }

  int Print() {
    const QByteArray command = question_.words.value(0);
    if (command.isEmpty()) {
      CheckFiles();
      CheckThisMachine({});
    } else if (command == "event") {
      PrintEvent();
    } else if (command == "settings") {
      PrintSettings();
    } else {
      PrintScript();
    }
    AddFindings(findings_, document_);
    if (command != "settings" || findings_.HasComplaint()) {
      const bool isValueAlone = command == "settings" && question_.words.size() == 2;
      (isValueAlone ? errors_ : text_) += FindingsAsText(findings_, HasColours());
    }
    return Finish(findings_.HasComplaint() || isLost_ ? kComplaint : kNoComplaint);
  }

 private:
  HostIdentity Host() const {
    // Stand-ins: an address for documentation (RFC 5737) and a usual name.
    return question_.isOffline
               ? HostIdentity{QStringLiteral("192.0.2.1"), QStringLiteral("tc-0042")}
               : LookUpHostIdentity();
  }

  void CheckFiles() {
    CheckSettings(settings_, definitions_, findings_);
    CheckTemplate(settings_, definitions_, Host(), findings_);
    CheckDefinitions(definitions_, findings_);
  }

  void CheckThisMachine(const QString &event) {
    if (!question_.isOffline) {
      CheckMachine(settings_, definitions_, service_, event, findings_);
    }
  }

  void PrintEvent() {
    const EventAnswer answer =
        AnswerFor(question_.words[1], question_.words.value(2), settings_, definitions_, Host());
    CheckFiles();
    CheckThisMachine(answer.id);
    findings_ = findings_.About(answer.id);
    isLost_ = !answer.IsForwarded();
    if (answer.protocol == Protocol::kTcp && answer.values.contains(QLatin1Char('\n'))) {
      findings_.Add("line-break", settings_.PlaceOfKey(QStringLiteral("protocol")),
                    QStringLiteral("the values of this event hold a line feed: over TCP it becomes "
                                   "several lines. Write the values without it"),
                    {answer.id});
    }
    text_ = AsText(answer);
    document_.insert(QStringLiteral("event"), AsJson(answer));
  }

  void PrintSettings() {
    if (!settings_.IsReadable()) {
      CheckSettings(settings_, definitions_, findings_);
    }
    // The values of a file that cannot be read remain unknown; without a file they are the
    // defaults.
    if (!settings_.IsReadable() && settings_.Exists()) {
      return;
    }
    const SettingsAnswer answer = AnswerFor(settings_);
    document_ = AsJson(answer);
    if (question_.words.size() == 1) {
      text_ = AsText(answer);
    } else {
      const int index = SettingsKeys().indexOf(QString::fromUtf8(question_.words[1]));
      text_ = answer.settings[index].value.toUtf8() + '\n';
    }
  }

  void PrintScript() {
    if (service_) {
      BecomeUserOf(*service_);
    }
    const ScriptAnswer answer =
        TryScript(*FindMonitorOfScript(QString::fromUtf8(question_.words[1])), settings_.InForce(),
                  findings_);
    text_ = AsText(answer);
    document_.insert(QStringLiteral("script"), AsJson(answer));
  }

  int Finish(int status) {
    if (question_.wantsJson) {
      text_ = QJsonDocument(document_).toJson();
      errors_.clear();
    }
    std::fputs(errors_.constData(), stderr);
    std::fwrite(text_.constData(), 1, static_cast<std::size_t>(text_.size()), stdout);
    return status;
  }

  const Question &question_;
  const std::optional<ServiceProcess> service_;
  const SettingsFile settings_;
  const DefinitionsFile definitions_;
  Findings findings_;
  QByteArray text_;
  QByteArray errors_;
  QJsonObject document_;
  bool isLost_ = false;
};

}  // namespace

int PrintAnswer(const Question &question) { return Answer(question).Print(); }

}  // namespace ov
