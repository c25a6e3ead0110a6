#include "monitors/script_runner.h"

#include <QByteArray>
#include <QProcess>

namespace ov {

QString RunScript(const QString &program, const QStringList &arguments) {
  constexpr int kTimeout = std::chrono::milliseconds(kScriptTimeout).count();
  QProcess process;
  process.setStandardErrorFile(QProcess::nullDevice());
  process.start(program, arguments, QIODevice::ReadWrite);
  process.waitForFinished(kTimeout);
  const QByteArray output = process.readAllStandardOutput();
  if (process.state() != QProcess::NotRunning) {
    // Left to the destructor, this would print a warning.
    process.kill();
    process.waitForFinished(kTimeout);
  }
  return QString::fromUtf8(output.constData());
}

bool IsProcessRunning(const QString &name) {
  return !RunScript(QStringLiteral("pgrep"), {name}).isEmpty();
}

}  // namespace ov
