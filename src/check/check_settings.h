// What the service makes of the settings file.
#pragma once

#include "check/definitions_file.h"
#include "check/finding.h"
#include "check/settings_file.h"

namespace ov {

/// The thirteen keys, in the order in which the service applies them.
extern const QStringList kSettingsKeys;

/// Those of them whose values are texts.
extern const QStringList kTextKeys;

void CheckSettings(const SettingsFile &settings, const DefinitionsFile &definitions,
                   Findings &findings);

}  // namespace ov
