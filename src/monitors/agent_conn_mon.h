// The secure connection monitor: reports each change of the status that the platform's agent writes
// into a file.
#pragma once

#include <QString>
#include <chrono>

#include "monitors/monitor.h"

namespace ov {

constexpr char kAgentStatusPath[] = "/tmp/ovwsagentstatus";
constexpr int kAgentStatusLine = 3;  // counted from 1
constexpr std::chrono::seconds kAgentPeriod{5};

/// Remembers the status of the last check.
class AgentConnMon final : public Monitor {
 public:
  /// Whether a connection (or a certificate warning) and a failure may be raised.
  AgentConnMon(bool connectedAllowed, bool failureAllowed);
  ~AgentConnMon() override { StopIfRunning(); }

  void Init() override;
  void Check() override;
  void Reserved() override {}

  /// The file's third line, trimmed; empty if there is none.
  static QString ReadAgentStatus();

 private:
  void Report(const QString &status) const;

  bool failureAllowed_;
  bool connectedAllowed_;
  QString lastStatus_;
};

}  // namespace ov
