// The performance monitor: raises an event when the use of the processor, the memory or a disk
// reaches its threshold, and again only after it was below.
#pragma once

#include <chrono>
#include <cstddef>

#include "monitors/monitor.h"

namespace ov {

constexpr char kPerfScriptPath[] = "/usr/lib/orvan/ov-event-logger/perf.sh";
constexpr std::size_t kPerfValuesLimit = 15;  // characters
constexpr std::chrono::seconds kPerfPeriod{5};

/// Knows of each resource its last reading, and whether that was reported.
class PerfMon final : public Monitor {
 public:
  /// Whether "perf01" (processor), "perf02" (memory) and "perf03" (disk) may be raised, then
  /// their thresholds in percent.
  PerfMon(bool cpuAllowed, bool memAllowed, bool diskAllowed, float cpuThreshold,
          float memThreshold, float diskThreshold);
  ~PerfMon() override { StopIfRunning(); }

  void Init() override {}
  /// Reads the script's lines "cpu=", "mem=" and "disk=", in percent. One that is missing keeps
  /// the value of the check before. Ends the process if an event's values text is longer than 15
  /// characters, as 100 percent over a threshold of 10 or more is.
  void Check() override;
  void Reserved() override {}

 private:
  struct Resource {
    bool allowed;
    float threshold;  // percent
    float value;      // percent, the last reading
    bool raised;      // and not below the threshold since
  };

  void ReadValues();
  static void Evaluate(Resource &resource, const char *eventId);

  Resource cpu_;
  Resource mem_;
  Resource disk_;
};

}  // namespace ov
