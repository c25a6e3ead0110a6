#include "service/cycle_monitors.h"

namespace ov {

CycleMonitors::CycleMonitors(const Settings &settings)
    : usbDevMon_(settings.usbDevMon(), settings.isAllowed("sys05"), settings.isAllowed("sys06"),
                 settings.isAllowed("sys07")),
      vmwSigninMon_(settings.vmwSigninMon(), settings.isAllowed("sec03"),
                    settings.isAllowed("sec04")),
      agentConnMon_(settings.agentConnMon(), settings.isAllowed("net02"),
                    settings.isAllowed("net03")),
      perfMon_(settings.perfMon(), settings.isAllowed("perf01"), settings.isAllowed("perf02"),
               settings.isAllowed("perf03"), static_cast<float>(settings.cpuThreshold()),
               static_cast<float>(settings.memThreshold()),
               static_cast<float>(settings.diskThreshold())) {}

void CycleMonitors::StopEnabled() {
  usbDevMon_.StopIfEnabled();
  vmwSigninMon_.StopIfEnabled();
  agentConnMon_.StopIfEnabled();
  perfMon_.StopIfEnabled();
}

}  // namespace ov
