// The performance monitor: raises an event when the use of the processor, the memory or a disk
// reaches its threshold, and again only after a reading below it.
#pragma once

#include <QByteArray>
#include <QString>
#include <chrono>
#include <cstddef>
#include <optional>

#include "monitors/monitor.h"

namespace ov {

constexpr char kPerfScriptPath[] = "/usr/lib/orvan/ov-event-logger/perf.sh";
constexpr std::size_t kPerfValuesLimit = 15;  // characters
constexpr std::chrono::seconds kPerfPeriod{5};

/// A line "cpu=", "mem=" or "disk=" of the script with its number.
struct PerfReading {
  QString resource;
  float value;  ///< percent
};

/// What a line of the script says, or nothing. Text that is no number counts as 0.
std::optional<PerfReading> PerfReadingFrom(const QString &line);

/// The values of an event, such as "95.00% > 80.00%", or nothing if they are longer than
/// kPerfValuesLimit.
std::optional<QByteArray> PerfValuesText(float value, float threshold);

/// Remembers the last reading of each resource, and whether it raised the event.
class PerfMon final : public Monitor {
 public:
  /// Whether the events of processor, memory and disk may be raised, then their thresholds in
  /// percent.
  PerfMon(bool cpuAllowed, bool memAllowed, bool diskAllowed, float cpuThreshold,
          float memThreshold, float diskThreshold);
  ~PerfMon() override { StopIfRunning(); }

  void Init() override {}
  /// Reads the script's lines "cpu=", "mem=" and "disk=", in percent. A value whose line is missing
  /// stays as it was. Ends the process if an event's values text is longer than kPerfValuesLimit,
  /// such as "100.00% > 90.00%".
  void Check() override;
  void Reserved() override {}

  /// What Check does with the script's output.
  void TakeIn(const QString &output);

 private:
  struct Resource {
    bool allowed;
    float threshold;  // percent
    float value;      // percent, the last reading
    bool raised;      // the event, and no reading was below the threshold since
  };

  static void Evaluate(Resource &resource, const char *eventId);

  Resource cpu_;
  Resource mem_;
  Resource disk_;
};

}  // namespace ov
