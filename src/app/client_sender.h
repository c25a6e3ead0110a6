// The event client: sends one event to the running service.
#pragma once

#include <chrono>

namespace ov {

constexpr int kConnectAttempts = 30;
/// The pause after each failed attempt to connect.
constexpr std::chrono::seconds kConnectPause{1};

/// Prints the record of the event and sends it. `values` may be null. Returns after the record
/// was written; a failure is reported with perror and ends the process with status 1. Without a
/// service that takes about 30 seconds.
void SendEvent(const char *id, const char *values);

}  // namespace ov
