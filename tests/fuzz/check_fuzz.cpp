// What ov-event-check makes of any two files. Sections: the settings file, then the definitions
// file. Each entry that Qt's reader and the service's find must have a line, and that line must be
// the last of its key.
#include "check/check_definitions.h"
#include "check/check_settings.h"
#include "check/check_template.h"
#include "check/definitions_file.h"
#include "check/event_answer.h"
#include "check/finding.h"
#include "check/report.h"
#include "check/settings_answer.h"
#include "check/settings_file.h"
#include "service/event_catalogue.h"
#include "support.h"

namespace ov::fuzz {

void Run(const Sections &sections) {
  const QString settingsPath = QLatin1String(kSettingsPath);
  const QString definitionsPath = QLatin1String(kFallbackDefinitionsPath);
  PlaceFile(kSettingsPath, true, sections[0]);
  PlaceFile(kFallbackDefinitionsPath, sections.size() > 1,
            sections.size() > 1 ? sections[1] : QByteArray());
  const SettingsFile settings(settingsPath);
  const DefinitionsFile definitions(definitionsPath);
  for (const QString &key : SettingsKeys()) {
    ExpectSame("line of a key", settings.LineOf(key) != nullptr, settings.Entries().contains(key));
  }
  Findings findings;
  const HostIdentity host{QStringLiteral("192.0.2.1"), QStringLiteral("tc-0042")};
  CheckSettings(settings, definitions, findings);
  CheckTemplate(settings, definitions, host, findings);
  CheckDefinitions(definitions, findings);
  FindingsAsText(findings, true);
  AsText(AnswerFor(settings));
  for (const QString &id : definitions.Ids()) {
    AsText(AnswerFor(id.toLatin1(), "values", settings, definitions, host));
  }
  TakePrinted();
}

}  // namespace ov::fuzz
