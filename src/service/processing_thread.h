// The processing thread: every few seconds, turns the queued events into lines and sends them to
// the collector. The main thread starts it; the thread that ends a cycle stops it. It uses the
// process-wide catalogue, forwarding and queue.
#pragma once

#include <chrono>

namespace ov {

/// The pause after each pass.
constexpr std::chrono::seconds kPassPause{3};
/// The pause after each failed connection to a TCP collector.
constexpr std::chrono::seconds kReconnectPause{10};

/// Starts the thread and waits until it can be stopped. Returns 0, or the error number of the
/// failed creation.
int StartProcessingThread();

/// Asks the thread to end after its present pass and waits for that: as long as one pause, or for
/// ever while a TCP collector refuses its connection. Reports a failed join with perror.
void StopProcessingThread();

}  // namespace ov
