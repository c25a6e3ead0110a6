#include "event/event_definition.h"

#include <QByteArray>
#include <array>
#include <cstdio>
#include <string_view>
#include <utility>

namespace ov {
namespace {

constexpr std::array<std::string_view, 8> kSeverityNames = {"emerg", "alert",  "crit", "err",
                                                            "warn",  "notice", "info", "debug"};
constexpr std::int32_t kUnknownSeverity = -1;

template <typename Text>
std::int32_t FindSeverity(const Text &name) {
  std::int32_t severity = 0;
  for (const std::string_view known : kSeverityNames) {
    if (name == QLatin1String(known.data(), static_cast<int>(known.size()))) {
      return severity;
    }
    ++severity;
  }
  return kUnknownSeverity;
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
