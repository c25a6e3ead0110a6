// The allowed events, beside the definitions and the monitors that are on.
#pragma once

#include "check/definitions_file.h"
#include "check/finding.h"
#include "check/settings_file.h"

namespace ov {

void CheckAllowed(const SettingsFile &settings, const DefinitionsFile &definitions,
                  Findings &findings);

}  // namespace ov
