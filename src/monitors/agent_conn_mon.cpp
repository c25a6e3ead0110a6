#include "monitors/agent_conn_mon.h"

#include <QDebug>
#include <QFile>
#include <QFileInfo>

#include "base/text_file.h"

namespace ov {
namespace {

constexpr std::int32_t kPeriod = 5;  // seconds
constexpr int kStatusLine = 3;       // counted from 1

}  // namespace

AgentConnMon::AgentConnMon(bool connectedAllowed, bool failureAllowed)
    : Monitor(QStringLiteral("Secure Connection Monitor"), kPeriod),
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
  const QString path = QLatin1String(kAgentStatusPath);
  QFile file(path);
  // Anyone may write to the folder: a pipe or a device there must not hold the monitor.
  if (!QFileInfo(path).isFile() || !file.open(QIODevice::ReadOnly | QIODevice::Text)) {
    return {};
  }
  QString line;
  for (int number = 1; number <= kStatusLine; ++number) {
    if (!ReadLine(file, line)) {
      return {};
    }
  }
  return line.trimmed();
}

}  // namespace ov
