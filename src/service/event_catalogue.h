// The catalogue of event definitions: the events that the service knows, and what it says about
// each.
#pragma once

#include <QHash>
#include <QString>
#include <QStringList>
#include <functional>
#include <mutex>
#include <string_view>

#include "event/event_definition.h"

namespace ov {

constexpr char kSystemDefinitionsPath[] = "/usr/lib/orvan/ov-event-logger/ov-event-def.csv";
/// Read only when the system file does not exist: a fallback, not an override.
constexpr char kFallbackDefinitionsPath[] = "/tmp/ov-event-def.csv";

/// Definitions by event identifier (case-sensitive).
using EventDefinitions = QHash<QString, EventDefinition>;

/// The definitions file that counts, or null if neither exists.
const char *FindDefinitionsFile();

/// Gives every line of a definitions file, UTF-8, to `take`. Returns false if the file cannot be
/// opened.
bool ReadDefinitionLines(const QString &path, const std::function<void(const QString &)> &take);

constexpr int kDefinitionColumns = 4;

/// The columns of a line: identifier, label, description and severity name, separated by commas,
/// without any quoting and without the white space around them. None if the line is a comment,
/// which begins with "#". A line with fewer columns defines nothing; more columns do not count.
QStringList DefinitionColumns(const QString &line);

/// Reads the definitions file. The last row of an identifier wins. Reports progress on standard
/// output, and each line that it skips as a warning. Without a readable file there are no
/// definitions.
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
