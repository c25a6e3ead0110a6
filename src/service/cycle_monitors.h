// The four monitors of one run cycle, on whose thread they are constructed, stopped and destroyed.
#pragma once

#include "config/settings.h"
#include "monitors/agent_conn_mon.h"
#include "monitors/perf_mon.h"
#include "monitors/usb_dev_mon.h"
#include "monitors/vmw_signin_mon.h"

namespace ov {

/// A monitor with the switch that the settings have for it.
template <typename AnyMonitor>
class SwitchedMonitor {
 public:
  /// Constructs the monitor and, if it is enabled, starts it.
  template <typename... Arguments>
  explicit SwitchedMonitor(bool enabled, Arguments... arguments)
      : enabled_(enabled), monitor_(arguments...) {
    if (enabled_) {
      monitor_.Start();
    }
  }

  void StopIfEnabled() {
    if (enabled_) {
      monitor_.Stop();
    }
  }

 private:
  bool enabled_;
  AnyMonitor monitor_;
};

/// All four exist in every cycle. They are constructed in the order of the members, each started
/// before the next is constructed, and destroyed in the reverse order, which also stops those that
/// still run.
class CycleMonitors {
 public:
  /// Looks up the switches, the allowed events and the thresholds, for the whole cycle.
  explicit CycleMonitors(const Settings &settings);

  /// Stops the enabled ones, in the order of their construction. Takes up to one period each, and
  /// as long as a check that is under way.
  void StopEnabled();

 private:
  SwitchedMonitor<UsbDevMon> usbDevMon_;
  SwitchedMonitor<VmwSigninMon> vmwSigninMon_;
  SwitchedMonitor<AgentConnMon> agentConnMon_;
  SwitchedMonitor<PerfMon> perfMon_;
};

}  // namespace ov
