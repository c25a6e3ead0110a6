// The lines of events, as the service would send them.
#pragma once

#include <QByteArray>

#include "config/settings.h"
#include "event/event_definition.h"
#include "event/event_record.h"
#include "output/host_identity.h"
#include "output/message_formatter.h"

namespace ov {

class LineMaker {
 public:
  LineMaker(const Settings &settings, const HostIdentity &host);

  /// The bytes of one event: those of a datagram, or of a frame over TCP.
  QByteArray LineFor(const EventRecord &record, const EventDefinition &definition);

 private:
  MessageFormatter formatter_;
  LineContext context_;
  Protocol protocol_;
};

struct MonthNames {
  QString written;
  QString english;
};

/// The first month that [DATE] has another name for than the English one, or nothing.
MonthNames MonthNotInEnglish();

}  // namespace ov
