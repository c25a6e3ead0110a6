#include "monitors/perf_mon.h"

#include <QByteArray>
#include <QString>
#include <QStringList>
#include <array>
#include <cstdio>
#include <cstdlib>

#include "event/built_in_events.h"
#include "monitors/script_runner.h"

namespace ov {
std::optional<PerfReading> PerfReadingFrom(const QString &line) {
  const QStringList pieces = line.split(QLatin1Char('='));
  if (pieces.size() != 2) {
    return std::nullopt;
  }
  return PerfReading{pieces[0].trimmed(), pieces[1].trimmed().toFloat()};
}

std::optional<QByteArray> PerfValuesText(float value, float threshold) {
  std::array<char, kPerfValuesLimit + 1> text{};
  const int length = std::snprintf(text.data(), text.size(), "%.2f%% > %.2f%%",
                                   static_cast<double>(value), static_cast<double>(threshold));
  if (length < 0 || static_cast<std::size_t>(length) > kPerfValuesLimit) {
    return std::nullopt;
  }
  return QByteArray(text.data());
}

PerfMon::PerfMon(bool cpuAllowed, bool memAllowed, bool diskAllowed, float cpuThreshold,
                 float memThreshold, float diskThreshold)
    : Monitor(QStringLiteral("Performance Monitor"), kPerfPeriod),
      cpu_{cpuAllowed, cpuThreshold, 0, false},
      mem_{memAllowed, memThreshold, 0, false},
      disk_{diskAllowed, diskThreshold, 0, false} {}

void PerfMon::Check() { TakeIn(RunScript(QLatin1String(kPerfScriptPath), {})); }

void PerfMon::TakeIn(const QString &output) {
  const QStringList lines = output.split(QLatin1Char('\n'));
  for (const QString &line : lines) {
    const std::optional<PerfReading> reading = PerfReadingFrom(line);
    if (!reading) {
      continue;
    }
    if (reading->resource == QLatin1String("cpu")) {
      cpu_.value = reading->value;
    } else if (reading->resource == QLatin1String("mem")) {
      mem_.value = reading->value;
    } else if (reading->resource == QLatin1String("disk")) {
      disk_.value = reading->value;
    }
  }
  Evaluate(cpu_, kCpuThresholdReached);
  Evaluate(mem_, kMemThresholdReached);
  Evaluate(disk_, kDiskThresholdReached);
}

void PerfMon::Evaluate(Resource &resource, const char *eventId) {
  if (!resource.allowed) {
    return;
  }
  // A value that is not a number counts as below the threshold.
  if (!(resource.value >= resource.threshold)) {
    resource.raised = false;
  } else if (!resource.raised) {
    const std::optional<QByteArray> values = PerfValuesText(resource.value, resource.threshold);
    if (!values) {
      std::fprintf(stderr, "Performance values do not fit %zu characters: %.2f%% > %.2f%%\n",
                   kPerfValuesLimit, static_cast<double>(resource.value),
                   static_cast<double>(resource.threshold));
      std::abort();
    }
    RaiseEvent(eventId, *values);
    resource.raised = true;
  }
}

}  // namespace ov
