#include "event/event_definition.h"

#include <QByteArray>
#include <algorithm>
#include <array>
#include <cstdio>
#include <utility>

namespace ov {
namespace {

constexpr std::array<QLatin1String, 8> kSeverityNames = {
    QLatin1String("emerg"), QLatin1String("alert"),  QLatin1String("crit"), QLatin1String("err"),
    QLatin1String("warn"),  QLatin1String("notice"), QLatin1String("info"), QLatin1String("debug")};
constexpr std::int32_t kUnknownSeverity = -1;

template <typename Text>
std::int32_t FindSeverity(const Text &name) {
  const auto found = std::find(kSeverityNames.begin(), kSeverityNames.end(), name);
  return found == kSeverityNames.end() ? kUnknownSeverity
                                       : static_cast<std::int32_t>(found - kSeverityNames.begin());
}

// A known name needs no conversion: there may be many definitions.
std::int32_t SeverityOf(const QString &name) {
  const std::int32_t severity = FindSeverity(name);
  return severity == kUnknownSeverity ? syslogLevelFromName(name.toUtf8().constData()) : severity;
}

}  // namespace

EventDefinition::EventDefinition(QString id_, QString label_, QString description_,
                                 QString severityName_)
    : id(std::move(id_)),
      label(std::move(label_)),
      description(std::move(description_)),
      severityName(std::move(severityName_)),
      severity(SeverityOf(severityName)) {}

std::int32_t syslogLevelFromName(const char *name) {
  const std::int32_t severity = FindSeverity(QLatin1String(name));
  if (severity == kUnknownSeverity) {
    std::fprintf(stderr, "Unknown syslog level: %s\n", name);
  }
  return severity;
}

}  // namespace ov
