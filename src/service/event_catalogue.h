// The catalogue of event definitions: which events the service knows, and what it says of them.
// Loaded on the main thread before any other thread exists, and afterwards reached only through
// IsDefined and DefinitionOf, which share a lock.
#pragma once

#include <QHash>
#include <QString>

#include "event/event_definition.h"

namespace ov {

/// Definitions by event identifier (case-sensitive).
using EventCatalogue = QHash<QString, EventDefinition>;

constexpr char kSystemDefinitionsPath[] = "/usr/lib/orvan/ov-event-logger/ov-event-def.csv";
/// Read only when the system file does not exist: a fallback, not an override.
constexpr char kFallbackDefinitionsPath[] = "/tmp/ov-event-def.csv";

/// Reads the definitions file: UTF-8, one definition a line, the columns identifier, label,
/// description and severity name separated by commas, without any quoting; lines that begin with
/// "#" are comments, and the last row of an identifier wins. Reports its progress on standard
/// output and what it passes over as warnings. A file that is missing or cannot be opened gives
/// an empty catalogue.
EventCatalogue loadEventDefinitions();

/// Whether an event of this identifier is known. Any thread.
bool IsDefined(const EventCatalogue &catalogue, const QString &id);

/// The definition of an event. One that nobody defined, as a monitor may raise it, gets an empty
/// definition, which stays in the catalogue. Any thread; the result is good for the life of the
/// catalogue.
const EventDefinition &DefinitionOf(EventCatalogue &catalogue, const QString &id);

extern EventCatalogue g_eventCatalogue;

}  // namespace ov
