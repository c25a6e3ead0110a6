// What the service makes of the settings file.
#pragma once

#include "check/definitions_file.h"
#include "check/finding.h"
#include "check/settings_file.h"

namespace ov {

/// The thirteen keys, in the order in which the service applies them.
const QStringList &SettingsKeys();

/// Whether the values of this key are texts. Those of the others are numbers.
bool IsTextKey(const QString &key);

void CheckSettings(const SettingsFile &settings, const DefinitionsFile &definitions,
                   Findings &findings);

}  // namespace ov
