// A program that runs beside the service. Started without copying the service's memory, which a
// fork does and which is most of what a process object of Qt costs here.
#pragma once

#include <sys/types.h>

#include <QByteArray>
#include <QString>
#include <QStringList>
#include <chrono>

#include "base/unique_fd.h"

namespace ov {

/// More output than this of one program is not read: it waits, and runs out of time.
constexpr int kOutputLimit = 64 * 1024 * 1024;  // bytes

/// A program with pipes as its standard input, on which nothing ever comes, and its standard
/// output; its standard error goes nowhere. It has no other descriptor.
class ChildProcess {
 public:
  /// Looks the program up in PATH if it is named without a slash. No shell is involved. One that
  /// cannot be started counts as one that has ended without output.
  ChildProcess(const QString &program, const QStringList &arguments);

  /// Kills the program if it still runs, though not what it has started itself. Waits up to 30
  /// seconds for the end of one that does not die at once.
  ~ChildProcess();

  ChildProcess(const ChildProcess &) = delete;
  ChildProcess &operator=(const ChildProcess &) = delete;

  /// What the program writes until it has ended or the time is over. Whether others still hold
  /// its output open does not matter.
  QByteArray ReadUntilEnd(std::chrono::milliseconds timeout);

 private:
  pid_t pid_ = 0;     // 0 while there is none
  UniqueFd process_;  // readable once the program has ended
  UniqueFd input_;
  UniqueFd output_;
};

}  // namespace ov
