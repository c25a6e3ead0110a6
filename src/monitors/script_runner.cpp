#include "monitors/script_runner.h"

#include <QByteArray>

#include "monitors/child_process.h"

namespace ov {

QString RunScript(const QString &program, const QStringList &arguments) {
  const QByteArray output = ChildProcess(program, arguments).ReadUntilEnd(kScriptTimeout);
  return QString::fromUtf8(output.constData());
}

bool IsProcessRunning(const QString &name) {
  return !RunScript(QStringLiteral("pgrep"), {name}).isEmpty();
}

}  // namespace ov
