// How events become lines, and where the lines go. The run cycle changes this when a cycle begins
// and ends. After a failed accept the processing thread of an older cycle still runs: each pass
// works on a copy of its own.
#pragma once

#include <cstdint>
#include <mutex>

#include "config/settings.h"
#include "output/message_formatter.h"
#include "output/tcp_syslog_sender.h"
#include "output/udp_syslog_sender.h"

namespace ov {

/// What a pass needs of its run cycle. A copy is cheap; it keeps its UDP socket open.
struct Forwarding {
  std::int32_t facility = 0;
  Protocol protocol = Protocol::kUdp;
  MessageFormatter formatter;
  UdpSyslogSender udpSender;
  TcpSyslogSender tcpSender;
};

/// Any thread may call both functions.
class SharedForwarding {
 public:
  /// A pass takes a copy when it begins, and one for each try to connect to a TCP collector.
  Forwarding Get() const {
    const std::lock_guard<std::mutex> lock(mutex_);
    return forwarding_;
  }

  /// Calls `change` with the forwarding. Get waits until it returns.
  template <typename Function>
  void Change(Function change) {
    const std::lock_guard<std::mutex> lock(mutex_);
    change(forwarding_);
  }

 private:
  mutable std::mutex mutex_;
  Forwarding forwarding_;
};

extern SharedForwarding g_forwarding;

}  // namespace ov
