#include "monitors/script_runner.h"

#include <QByteArray>
#include <QProcess>

namespace ov {
namespace {

// Reaches the one protected function that resets the state. QProcess itself stays the class of the
// object: for derived classes Qt forks in another way, which takes over SIGCHLD.
struct StateOfProcess : QProcess {
  static void Reset(QProcess &process) {
    (process.*&StateOfProcess::setProcessState)(QProcess::NotRunning);
  }
};

}  // namespace

QString RunScript(const QString &program, const QStringList &arguments) {
  QProcess process;
  process.start(program, arguments, QIODevice::ReadWrite);
  if (process.processId() < 0) {
    // The kernel refused a new process. Qt 5.15 overlooks that and would send SIGKILL to -1, which
    // is every process of the machine.
    StateOfProcess::Reset(process);
    return {};
  }
  // Qt goes on reading standard error, so that the program never waits, and drops what it reads.
  process.closeReadChannel(QProcess::StandardError);
  const bool hasFinished =
      process.waitForFinished(std::chrono::milliseconds(kScriptTimeout).count());
  const QByteArray output = process.readAllStandardOutput();
  if (!hasFinished) {
    // The destructor of a process that still runs would print a warning.
    process.kill();
    process.waitForFinished();
  }
  return QString::fromUtf8(output.constData());
}

bool IsProcessRunning(const QString &name) {
  return !RunScript(QStringLiteral("pgrep"), {name}).isEmpty();
}

}  // namespace ov
