// Files for ov-event-check, and what it finds in them.
#pragma once

#include <QString>
#include <string>
#include <string_view>

#include "check/definitions_file.h"
#include "check/finding.h"
#include "check/settings_file.h"
#include "output/host_identity.h"
#include "service/event_catalogue.h"
#include "support/files.h"

namespace ov {

inline const HostIdentity kHost{QStringLiteral("192.0.2.1"), QStringLiteral("tc-0042")};

inline QString Q(const std::string &text) { return QString::fromStdString(text); }

/// The settings file with these contents.
inline SettingsFile SettingsWith(std::string_view contents) {
  WriteSettings(contents);
  return SettingsFile(QLatin1String(kSettingsPath));
}

/// The definitions file, where it is a fallback, with these contents.
inline DefinitionsFile DefinitionsWith(std::string_view contents) {
  WriteFile(kFallbackDefinitionsPath, contents);
  return DefinitionsFile(QLatin1String(kFallbackDefinitionsPath));
}

/// "<cause> <line>:<column>" of each finding, with a bar between them.
inline std::string Places(const Findings &findings) {
  QStringList places;
  for (const Finding &finding : findings.Sorted()) {
    places.append(QStringLiteral("%1 %2:%3")
                      .arg(QLatin1String(finding.cause->name), QString::number(finding.place.line),
                           QString::number(finding.place.column)));
  }
  return places.join(QLatin1Char('|')).toStdString();
}

/// "<cause>: <sentence> <<events>>" of each finding, with a bar between them.
inline std::string Sentences(const Findings &findings) {
  QStringList sentences;
  for (const Finding &finding : findings.Sorted()) {
    sentences.append(QStringLiteral("%1: %2 <%3>")
                         .arg(QLatin1String(finding.cause->name), finding.sentence,
                              finding.events.join(QLatin1Char(' '))));
  }
  return sentences.join(QLatin1Char('|')).toStdString();
}

}  // namespace ov
