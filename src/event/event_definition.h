// What the definitions file says about one kind of event. Plain values; any thread may make and
// copy them.
#pragma once

#include <QString>
#include <array>
#include <cstdint>
#include <string_view>

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

/// The eight severity names, each at the place of its syslog severity number (RFC 5424, section
/// 6.2.1).
constexpr std::array<std::string_view, 8> kSeverityNames = {"emerg", "alert",  "crit", "err",
                                                            "warn",  "notice", "info", "debug"};

/// The severity number of a name, compared exactly, or kUnknownSeverity.
std::int32_t FindSeverity(std::string_view name);

/// Like FindSeverity. Prints "Unknown syslog level: <name>" on standard error for a name that is
/// none of the eight.
std::int32_t syslogLevelFromName(const char *name);

}  // namespace ov
