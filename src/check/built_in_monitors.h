// The four monitors of the service: the key that switches each on, its script and its events.
#pragma once

#include <QList>
#include <QString>
#include <QStringList>

#include "config/settings.h"

namespace ov {

struct BuiltInMonitor {
  QString key;  ///< in the settings
  bool (Settings::*isOn)() const;
  QString scriptPath;  ///< empty for the one that reads a file
  QStringList events;  ///< the identifiers of those that it can raise
};

const QList<BuiltInMonitor> &BuiltInMonitors();

/// The monitor that runs the script of this name, as "perf.sh", or null.
const BuiltInMonitor *FindMonitorOfScript(const QString &name);

/// "perf.sh", "usb-devices.sh" and "vmw-signin-status.sh".
QStringList ScriptNames();

}  // namespace ov
