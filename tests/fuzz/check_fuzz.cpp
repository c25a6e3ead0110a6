// What ov-event-check makes of any two files. Sections: the settings file, then the definitions
// file. A key must have a line exactly if the service's reader finds the key. Without that line the
// reader must find it exactly if an earlier line has it too.
#include <algorithm>

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
namespace {

void ExpectLineToCount(const SettingsFile &settings, const QString &key) {
  const SettingsLine &line = *settings.LineOf(key);
  QByteArray without = settings.Contents();
  without.replace(line.start, line.text.size(), QByteArray(line.text.size(), ' '));
  PlaceFile(kSettingsPath, true, without);
  const auto lines = std::count_if(settings.Lines().begin(), settings.Lines().end(),
                                   [&key](const SettingsLine &other) {
                                     return other.valueStart > 0 && other.KeyWithSection() == key;
                                   });
  ExpectSame("key without its line",
             Settings::readSettingsFile(QLatin1String(kSettingsPath)).contains(key), lines > 1);
}

}  // namespace

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
    if (settings.LineOf(key) != nullptr) {
      ExpectLineToCount(settings, key);
    }
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
