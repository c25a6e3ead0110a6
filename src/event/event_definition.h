// What the definitions file says about one kind of event. Plain values; any thread may make and
// copy them.
#pragma once

#include <QString>
#include <cstdint>

namespace ov {

constexpr std::int32_t kUnknownSeverity = -1;

/// One row of the definitions file.
struct EventDefinition {
  /// Empty texts and severity 0, for an event that has no definition.
  EventDefinition() = default;

  /// Derives the severity from `severityName` with syslogLevelFromName.
  EventDefinition(QString id, QString label, QString description, QString severityName);

  QString id;
  QString label;
  QString description;
  QString severityName;
  std::int32_t severity = 0;  ///< 0 ("emerg") to 7 ("debug"), or kUnknownSeverity
};

/// The syslog severity number (RFC 5424, section 6.2.1) of "emerg", "alert", "crit", "err",
/// "warn", "notice", "info" or "debug", compared exactly. For any other name, kUnknownSeverity
/// after printing "Unknown syslog level: <name>" on standard error.
std::int32_t syslogLevelFromName(const char *name);

}  // namespace ov
