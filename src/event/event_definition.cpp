#include "event/event_definition.h"

#include <QByteArray>
#include <array>
#include <cstdio>
#include <string_view>
#include <utility>

namespace ov {

EventDefinition::EventDefinition(QString id_, QString label_, QString description_,
                                 QString severityName_)
    : id(std::move(id_)),
      label(std::move(label_)),
      description(std::move(description_)),
      severityName(std::move(severityName_)),
      severity(syslogLevelFromName(severityName.toUtf8().constData())) {}

std::int32_t syslogLevelFromName(const char *name) {
  constexpr std::array<std::string_view, 8> kNames = {"emerg", "alert",  "crit", "err",
                                                      "warn",  "notice", "info", "debug"};
  for (std::size_t severity = 0; severity < kNames.size(); ++severity) {
    if (name == kNames[severity]) {
      return static_cast<std::int32_t>(severity);
    }
  }
  std::fprintf(stderr, "Unknown syslog level: %s\n", name);
  return kUnknownSeverity;
}

}  // namespace ov
