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

}  // namespace

EventDefinition::EventDefinition(QString id_, QString label_, QString description_,
                                 QString severityName_)
    : id(std::move(id_)),
      label(std::move(label_)),
      description(std::move(description_)),
      severityName(std::move(severityName_)),
      severity(syslogLevelFromName(severityName.toUtf8().constData())) {}

std::int32_t syslogLevelFromName(const char *name) {
  const std::string_view wanted(name);
  std::int32_t severity = 0;
  for (const std::string_view known : kSeverityNames) {
    if (known == wanted) {
      return severity;
    }
    ++severity;
  }
  std::fprintf(stderr, "Unknown syslog level: %s\n", name);
  return kUnknownSeverity;
}

}  // namespace ov
