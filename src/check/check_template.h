// What the service makes of the template, and what collectors make of its lines.
#pragma once

#include "check/definitions_file.h"
#include "check/finding.h"
#include "check/settings_file.h"
#include "output/host_identity.h"

namespace ov {

/// `host` is this machine's, or a stand-in.
void CheckTemplate(const SettingsFile &settings, const DefinitionsFile &definitions,
                   const HostIdentity &host, Findings &findings);

}  // namespace ov
