// A monitor that shows what is done with it.
#pragma once

#include <QString>
#include <atomic>
#include <chrono>
#include <functional>

#include "monitors/monitor.h"

namespace ov {

class ProbeMonitor final : public Monitor {
 public:
  /// `period` in seconds.
  explicit ProbeMonitor(std::int32_t period = 0, const char *name = "Probe Monitor")
      : Monitor(QString::fromUtf8(name), std::chrono::seconds(period)) {}
  ~ProbeMonitor() override { StopIfRunning(); }

  using Monitor::RaiseEvent;

  void Init() override {
    ++inits;
    onInit();
  }
  void Check() override {
    ++checks;
    onCheck();
  }
  void Reserved() override { ++reservedCalls; }

  std::atomic<int> inits{0};
  std::atomic<int> checks{0};
  std::atomic<int> reservedCalls{0};
  // What to do besides counting, on the monitor's thread. Set before the start.
  std::function<void()> onInit = [] {};
  std::function<void()> onCheck = [] {};
};

}  // namespace ov
