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
namespace {

QByteArray ValuesText(float value, float threshold) {
  std::array<char, kPerfValuesLimit + 1> text{};
  const int length = std::snprintf(text.data(), text.size(), "%.2f%% > %.2f%%",
                                   static_cast<double>(value), static_cast<double>(threshold));
  if (length < 0 || static_cast<std::size_t>(length) > kPerfValuesLimit) {
    std::fprintf(stderr, "Performance values do not fit %zu characters: %.2f%% > %.2f%%\n",
                 kPerfValuesLimit, static_cast<double>(value), static_cast<double>(threshold));
    std::abort();
  }
  return QByteArray(text.data());
}

}  // namespace

PerfMon::PerfMon(bool cpuAllowed, bool memAllowed, bool diskAllowed, float cpuThreshold,
                 float memThreshold, float diskThreshold)
    : Monitor(QStringLiteral("Performance Monitor"), kPerfPeriod),
      cpu_{cpuAllowed, cpuThreshold, 0, false},
      mem_{memAllowed, memThreshold, 0, false},
      disk_{diskAllowed, diskThreshold, 0, false} {}

void PerfMon::Check() {
  ReadValues();
  Evaluate(cpu_, kCpuThresholdReached);
  Evaluate(mem_, kMemThresholdReached);
  Evaluate(disk_, kDiskThresholdReached);
}

void PerfMon::ReadValues() {
  const QStringList lines = RunScript(QLatin1String(kPerfScriptPath), {}).split(QLatin1Char('\n'));
  for (const QString &line : lines) {
    const QStringList pieces = line.split(QLatin1Char('='));
    if (pieces.size() != 2) {
      continue;
    }
    const QString key = pieces[0].trimmed();
    const float value = pieces[1].trimmed().toFloat();
    if (key == QLatin1String("cpu")) {
      cpu_.value = value;
    } else if (key == QLatin1String("mem")) {
      mem_.value = value;
    } else if (key == QLatin1String("disk")) {
      disk_.value = value;
    }
  }
}

void PerfMon::Evaluate(Resource &resource, const char *eventId) {
  if (!resource.allowed) {
    return;
  }
  // A value that is not a number counts as below the threshold.
  if (!(resource.value >= resource.threshold)) {
    resource.raised = false;
  } else if (!resource.raised) {
    RaiseEvent(eventId, ValuesText(resource.value, resource.threshold));
    resource.raised = true;
  }
}

}  // namespace ov
