// The event intake: takes the one event record that a connection carries. Runs on the main thread.
#pragma once

#include <chrono>

#include "config/settings.h"
#include "service/event_catalogue.h"
#include "service/event_queue.h"

namespace ov {

/// How long a client that has connected may take to send its record.
constexpr std::chrono::seconds kIntakeTimeout{5};

/// Reads one record from a connected, non-blocking socket, prints it, and queues it if its event
/// is defined and allowed. One read is all: a short record is taken as it is. Neither answers the
/// client nor closes the connection. Reports a failed read, an end of data and a client that
/// sends nothing with perror.
void HandleConnection(int connection, const EventCatalogue &catalogue, const Settings &settings,
                      EventQueue &queue);

}  // namespace ov
