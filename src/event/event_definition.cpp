#include "event/event_definition.h"

#include <QByteArray>
#include <algorithm>
#include <cstdio>
#include <utility>

namespace ov {

EventDefinition::EventDefinition(QString id_, QString label_, QString description_,
                                 QString severityName_)
    : id(std::move(id_)),
      label(std::move(label_)),
      description(std::move(description_)),
      severityName(std::move(severityName_)),
      severity(syslogLevelFromName(severityName.toUtf8().constData())) {}

std::int32_t FindSeverity(std::string_view name) {
  const auto *const found = std::find(kSeverityNames.begin(), kSeverityNames.end(), name);
  return found == kSeverityNames.end() ? kUnknownSeverity
                                       : static_cast<std::int32_t>(found - kSeverityNames.begin());
}

std::int32_t syslogLevelFromName(const char *name) {
  const std::int32_t severity = FindSeverity(name);
  if (severity == kUnknownSeverity) {
    std::fprintf(stderr, "Unknown syslog level: %s\n", name);
  }
  return severity;
}

}  // namespace ov
