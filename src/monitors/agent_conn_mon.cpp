#include "monitors/agent_conn_mon.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <QByteArray>
#include <QDebug>
#include <QFile>
#include <QStringList>

#include "base/unique_fd.h"
#include "event/built_in_events.h"

namespace ov {

AgentConnMon::AgentConnMon(bool connectedAllowed, bool failureAllowed)
    : Monitor(QStringLiteral("Secure Connection Monitor"), kAgentPeriod),
      failureAllowed_(failureAllowed),
      connectedAllowed_(connectedAllowed) {}

void AgentConnMon::Init() { lastStatus_.clear(); }

void AgentConnMon::Check() {
  const QString status = ReadAgentStatus();
  qDebug() << "AgentConnMon::ReadAgentStatus: " << status;
  if (status != lastStatus_) {
    Report(status);
    lastStatus_ = status;
  }
}

void AgentConnMon::Report(const QString &status) const {
  if (status == QLatin1String("CONNECTED")) {
    if (connectedAllowed_) {
      RaiseEvent(kAgentConnected);
    }
  } else if (status == QLatin1String("CERTIFICATE WARNING")) {
    if (connectedAllowed_) {
      RaiseEvent(kAgentConnected, status.toUtf8());
    }
  } else if (status != QLatin1String("CONNECTING...")) {
    if (failureAllowed_) {
      RaiseEvent(kAgentFailed, status.toUtf8());
    }
  }
}

QString AgentConnMon::ReadAgentStatus() {
  // Anyone may create the file: a pipe or a device must not block the monitor.
  const UniqueFd descriptor(open(kAgentStatusPath, O_RDONLY | O_NONBLOCK | O_CLOEXEC));
  struct stat status {};
  if (fstat(descriptor.Get(), &status) != 0 || !S_ISREG(status.st_mode)) {
    return {};
  }
  QFile file;
  file.open(descriptor.Get(), QIODevice::ReadOnly);
  QByteArray text;
  for (int line = 1; line <= kAgentStatusLine; ++line) {
    text += file.readLine();
  }
  text.replace('\r', "");
  return QString::fromUtf8(text.constData(), text.size())
      .split(QLatin1Char('\n'))
      .value(kAgentStatusLine - 1)
      .trimmed();
}

}  // namespace ov
