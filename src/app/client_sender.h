// The event client: sends one event to the running service.
#pragma once

#include <chrono>

namespace ov {

constexpr int kConnectAttempts = 30;
/// The pause after each failed attempt to connect.
constexpr std::chrono::seconds kConnectPause{1};

/// Prints the record of the event, sends it and returns. `values` may be null. Reports a failure
/// with perror and ends the process with status 1, without a service after about 30 seconds.
void SendEvent(const char *id, const char *values);

}  // namespace ov
