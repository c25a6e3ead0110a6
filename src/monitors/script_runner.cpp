#include "monitors/script_runner.h"

#include <QByteArray>
#include <QProcess>

namespace ov {
namespace {

// Gives access to setProcessState, which is protected. RunScript makes a plain QProcess all the
// same: for an object of a derived class, Qt calls fork and installs a handler of SIGCHLD.
struct StateOfProcess : QProcess {
  static void Reset(QProcess &process) {
    (process.*&StateOfProcess::setProcessState)(QProcess::NotRunning);
  }
};

}  // namespace

ScriptRun RunProgram(const QString &program, const QStringList &arguments) {
  ScriptRun run;
  QProcess process;
  process.start(program, arguments, QIODevice::ReadWrite);
  if (process.processId() < 0) {
    // The kernel refused a new process. Qt 5.15 does not notice, and its kill would send SIGKILL to
    // -1, which is every process of the machine. Its destructor still closes a descriptor number
    // that nobody set.
    StateOfProcess::Reset(process);
    return run;
  }
  // Qt goes on reading standard error, so that the program never waits, and drops what it reads.
  process.closeReadChannel(QProcess::StandardError);
  const bool hasFinished =
      process.waitForFinished(std::chrono::milliseconds(kScriptTimeout).count());
  const QByteArray output = process.readAllStandardOutput();
  run.output = QString::fromUtf8(output.constData());
  if (process.error() == QProcess::FailedToStart) {
    return run;
  }
  if (!hasFinished) {
    // The destructor of a process that still runs would print a warning.
    process.kill();
    process.waitForFinished();
    run.end = ScriptRun::End::kTimedOut;
  } else if (process.exitStatus() == QProcess::CrashExit) {
    run.end = ScriptRun::End::kKilled;
  } else {
    run.end = ScriptRun::End::kExited;
    run.exitStatus = process.exitCode();
  }
  return run;
}

QString RunScript(const QString &program, const QStringList &arguments) {
  return RunProgram(program, arguments).output;
}

bool IsProcessRunning(const QString &name) {
  return !RunScript(QStringLiteral("pgrep"), {name}).isEmpty();
}

}  // namespace ov
