#include "monitors/script_runner.h"

#include <QByteArray>
#include <QProcess>

namespace ov {

QString RunScript(const QString &program, const QStringList &arguments) {
  QProcess process;
  process.start(program, arguments, QIODevice::ReadWrite);
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
