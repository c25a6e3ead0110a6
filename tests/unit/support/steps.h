// Shows from outside how far the monitors are.
#pragma once

#include "base/unique_fd.h"
#include "support/programs.h"

namespace ov {

/// Puts scripts and a status file in place for the four monitors that make them raise events in
/// most checks. Each run of a script, and each debug message in its place, counts as a step. One
/// at a time.
class Steps {
 public:
  Steps();
  Steps(const Steps &) = delete;
  Steps &operator=(const Steps &) = delete;
  ~Steps();

  /// Starts to count anew.
  void Forget();

  /// Whether so many steps are begun, within a time that no test needs unless it fails.
  bool Await(int count);

 private:
  FirstInPath folder_;
  UniqueFd pipe_;
};

}  // namespace ov
