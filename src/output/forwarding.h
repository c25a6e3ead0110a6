// How events become lines, and where the lines go. The run cycle changes it between the threads of
// two cycles. After a failed accept an older processing thread is still there: it works on copies.
#pragma once

#include <cstdint>
#include <mutex>

#include "config/settings.h"
#include "output/message_formatter.h"
#include "output/tcp_syslog_sender.h"
#include "output/udp_syslog_sender.h"

namespace ov {

/// What a pass needs of its run cycle. A copy is cheap, and its UDP socket stays open as long as
/// the copy lives.
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

  /// Lets `change` have the forwarding for itself. Get waits meanwhile.
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
