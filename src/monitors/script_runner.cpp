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

QString RunScript(const QString &program, const QStringList &arguments) {
  QProcess process;
  process.start(program, arguments, QIODevice::ReadWrite);
  if (process.processId() < 0) {
    // The kernel refused a new process. Qt 5.15 does not notice, and its kill would send SIGKILL to
    // -1, which is every process of the machine. Its destructor still closes a descriptor number
    // that nobody set.
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
