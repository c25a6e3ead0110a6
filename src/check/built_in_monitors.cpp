#include "check/built_in_monitors.h"

#include "event/built_in_events.h"
#include "monitors/perf_mon.h"
#include "monitors/usb_dev_mon.h"
#include "monitors/vmw_signin_mon.h"

namespace ov {
namespace {

QString ScriptName(const BuiltInMonitor &monitor) {
  return monitor.scriptPath.section(QLatin1Char('/'), -1);
}

}  // namespace

const QList<BuiltInMonitor> &BuiltInMonitors() {
  const auto text = [](const char *name) { return QString(QLatin1String(name)); };
  static const QList<BuiltInMonitor> kMonitors = {
      {QStringLiteral("perfMon"),
       &Settings::perfMon,
       text(kPerfScriptPath),
       {text(kCpuThresholdReached), text(kMemThresholdReached), text(kDiskThresholdReached)}},
      {QStringLiteral("usbDevMon"),
       &Settings::usbDevMon,
       text(kUsbScriptPath),
       {text(kUsbDevicePresent), text(kUsbDeviceAdded), text(kUsbDeviceRemoved)}},
      {QStringLiteral("vmwSigninMon"),
       &Settings::vmwSigninMon,
       text(kSigninScriptPath),
       {text(kSigninSucceeded), text(kSigninFailed)}},
      {QStringLiteral("agentConnMon"),
       &Settings::agentConnMon,
       {},
       {text(kAgentConnected), text(kAgentFailed)}}};
  return kMonitors;
}

const BuiltInMonitor *FindMonitorOfScript(const QString &name) {
  for (const BuiltInMonitor &monitor : BuiltInMonitors()) {
    if (!name.isEmpty() && ScriptName(monitor) == name) {
      return &monitor;
    }
  }
  return nullptr;
}

QStringList ScriptNames() {
  QStringList names;
  for (const BuiltInMonitor &monitor : BuiltInMonitors()) {
    if (!monitor.scriptPath.isEmpty()) {
      names.append(ScriptName(monitor));
    }
  }
  return names;
}

}  // namespace ov
