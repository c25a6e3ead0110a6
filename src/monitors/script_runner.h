// Runs the helper programs of the monitors. Called on the monitors' threads.
#pragma once

#include <QString>
#include <QStringList>
#include <chrono>

namespace ov {

/// How long a program may run before it is killed.
constexpr std::chrono::seconds kScriptTimeout{30};

/// How a program ran.
struct ScriptRun {
  enum class End { kNotStarted, kExited, kKilled, kTimedOut };

  End end = End::kNotStarted;
  int exitStatus = 0;  ///< of a program that exited
  QString output;
};

/// Runs a program without a shell and returns what it wrote on its standard output until it ended
/// or ran out of time, as UTF-8 up to the first NUL. A program that cannot be started gives the
/// empty text. Waits for the end of a program that it kills; the
/// children of the program go on.
ScriptRun RunProgram(const QString &program, const QStringList &arguments);

/// The output alone.
QString RunScript(const QString &program, const QStringList &arguments);

/// Whether `pgrep` finds a process whose name matches the pattern `name`.
bool IsProcessRunning(const QString &name);

}  // namespace ov
