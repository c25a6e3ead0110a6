// What there is on this machine for the service to work with: the service itself, its socket, the
// network, the collector, the scripts of the monitors.
#pragma once

#include <QString>
#include <optional>

#include "check/definitions_file.h"
#include "check/finding.h"
#include "check/service_process.h"
#include "check/settings_file.h"

namespace ov {

/// Looks only at what touches `event`, unless that is empty. The process may have the rights of the
/// service's user afterwards.
void CheckMachine(const SettingsFile &settings, const DefinitionsFile &definitions,
                  const std::optional<ServiceProcess> &service, const QString &event,
                  Findings &findings);

}  // namespace ov
