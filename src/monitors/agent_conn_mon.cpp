#include "monitors/agent_conn_mon.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <QDebug>
#include <QFile>

#include "base/text_file.h"
#include "base/unique_fd.h"

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
      RaiseEvent("net02");
    }
  } else if (status == QLatin1String("CERTIFICATE WARNING")) {
    if (connectedAllowed_) {
      RaiseEvent("net02", status.toUtf8());
    }
  } else if (status != QLatin1String("CONNECTING...")) {
    if (failureAllowed_) {
      RaiseEvent("net03", status.toUtf8());
    }
  }
}

QString AgentConnMon::ReadAgentStatus() {
  // Anyone may write to the folder: a pipe or a device there must not hold the monitor.
  const UniqueFd descriptor(open(kAgentStatusPath, O_RDONLY | O_NONBLOCK | O_CLOEXEC));
  struct stat status {};
  if (fstat(descriptor.Get(), &status) != 0 || !S_ISREG(status.st_mode)) {
    return {};
  }
  QFile file;
  if (!file.open(descriptor.Get(), QIODevice::ReadOnly | QIODevice::Text)) {
    return {};
  }
  QString line;
  for (int number = 1; number <= kAgentStatusLine; ++number) {
    if (!ReadLine(file, line)) {
      return {};
    }
  }
  return line.trimmed();
}

}  // namespace ov
