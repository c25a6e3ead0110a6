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

/// Remembers whether it reported the present run of the client.
class VmwSigninMon final : public Monitor {
 public:
  /// Whether a success and an error may be raised.
  VmwSigninMon(bool successAllowed, bool errorAllowed);
  ~VmwSigninMon() override { StopIfRunning(); }

  void Init() override;
  void Check() override;
  void Reserved() override {}

  /// The user from the script's answer to "user".
  static QString GetUsername();

  /// The user that an answer names. If it has four fields between colons: the second, and behind a
  /// slash the third unless it is blank. Otherwise the whole answer.
  static QString UsernameFrom(const QString &answer);

 private:
  // Whether the script prints anything at all for the word.
  static bool QueryStatus(const QString &word);

  bool successAllowed_;
  bool errorAllowed_;
  bool reported_ = false;  // in the present run of the client
};

}  // namespace ov
