// The catalogue of event definitions: the events that the service knows, and what it says about
// each.
#pragma once

#include <QHash>
#include <QString>
#include <mutex>
#include <string_view>

#include "event/event_definition.h"

namespace ov {

constexpr char kSystemDefinitionsPath[] = "/usr/lib/orvan/ov-event-logger/ov-event-def.csv";
/// Read only when the system file does not exist: a fallback, not an override.
constexpr char kFallbackDefinitionsPath[] = "/tmp/ov-event-def.csv";

/// Definitions by event identifier (case-sensitive).
using EventDefinitions = QHash<QString, EventDefinition>;

/// Reads the definitions file: UTF-8, one definition a line, the columns identifier, label,
/// description and severity name separated by commas, without any quoting. Lines that begin with
/// "#" are comments. The last row of an identifier wins. Reports progress on standard output, and
/// each line that it skips as a warning. Without a readable file there are no definitions.
EventDefinitions loadEventDefinitions();

/// Owns the definitions. Any thread may call every function at any time.
class EventCatalogue {
 public:
  void Replace(const EventDefinitions &definitions);

  /// Whether an event of this identifier (Latin-1) has a definition.
  bool IsDefined(std::string_view id) const;

  /// The definition of an event. An event without one (a monitor may raise it) gets an empty
  /// definition, which stays in the catalogue.
  EventDefinition FindOrInsert(std::string_view id);

 private:
  mutable std::mutex mutex_;  // an insertion may move the table while another thread reads it
  EventDefinitions definitions_;
};

extern EventCatalogue g_eventCatalogue;

}  // namespace ov
