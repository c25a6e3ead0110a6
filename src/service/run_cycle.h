// One run cycle of the event service: from opening the service socket, with the settings as they
// are then, to the settings' next change. Runs on the main thread. It is where the process-wide
// objects meet: settings, catalogue, formatter, senders and queue.
#pragma once

#include <chrono>

namespace ov {

/// How many clients may wait on the service socket.
constexpr int kListenBacklog = 10;
/// The pause after a look at the service socket that found no client.
constexpr std::chrono::microseconds kAcceptPause{1'000'000};

/// Runs one cycle and returns when the settings have changed or accept has failed. A failed setup
/// ends the process with status 1.
void RunCycle();

}  // namespace ov
