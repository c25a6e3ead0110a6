// One run cycle of the event service. It opens the service socket, reads the settings, serves
// clients, and ends when the settings change. Runs on the main thread. Uses the process-wide
// settings and forwarding.
#pragma once

#include <chrono>

#include "service/event_intake.h"

namespace ov {

/// The number of clients that may wait on the service socket.
constexpr int kListenBacklog = 10;
/// The pause between two looks at the settings file while no client waits.
constexpr std::chrono::seconds kAcceptPause{1};

/// Runs one cycle and returns when the settings have changed or accept has failed. A failed setup
/// ends the process with status 1.
void RunCycle(EventIntake &intake);

}  // namespace ov
