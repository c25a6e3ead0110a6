// What the service makes of the template, and what collectors make of its lines.
#pragma once

#include "check/definitions_file.h"
#include "check/finding.h"
#include "check/settings_file.h"
#include "event/event_record.h"
#include "output/host_identity.h"

namespace ov {

/// `host` is this machine's, or a stand-in.
void CheckTemplate(const SettingsFile &settings, const DefinitionsFile &definitions,
                   const HostIdentity &host, Findings &findings);

/// The line for one event, as the service would send it.
QByteArray LineFor(const SettingsFile &settings, const HostIdentity &host,
                   const EventRecord &record, const EventDefinition &definition);

}  // namespace ov
