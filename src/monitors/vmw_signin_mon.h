// The sign-in monitor: reports the outcome of a sign-in through the Omnissa Horizon client, once
// per run of the client.
#pragma once

#include <QString>
#include <chrono>

#include "monitors/monitor.h"

namespace ov {

constexpr char kSigninScriptPath[] = "/usr/lib/orvan/ov-event-logger/vmw-signin-status.sh";
constexpr char kSigninClient[] = "horizon-client";
constexpr std::chrono::seconds kSigninPeriod{3};

/// Knows whether the present run of the client was reported.
class VmwSigninMon final : public Monitor {
 public:
  /// Whether "sec03" (success) and "sec04" (error) may be raised.
  VmwSigninMon(bool successAllowed, bool errorAllowed);
  ~VmwSigninMon() override { StopIfRunning(); }

  void Init() override;
  void Check() override;
  void Reserved() override {}

  /// The user as the script's "user" tells: the second of four fields between colons, with the
  /// third behind a slash unless it is blank. Any other output is returned whole.
  static QString GetUsername();

 private:
  // Whether the script prints anything at all for the word.
  static bool QueryStatus(const QString &word);

  bool successAllowed_;
  bool errorAllowed_;
  bool reported_ = false;  // in the present run of the client
};

}  // namespace ov
