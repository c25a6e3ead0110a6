#include "monitors/vmw_signin_mon.h"

#include <QByteArray>
#include <QDebug>
#include <QStringList>

#include "event/built_in_events.h"
#include "monitors/script_runner.h"

namespace ov {
namespace {

QString RunSigninScript(const QString &word) {
  return RunScript(QLatin1String(kSigninScriptPath), {word});
}

}  // namespace

VmwSigninMon::VmwSigninMon(bool successAllowed, bool errorAllowed)
    : Monitor(QStringLiteral("Omnissa Signin Monitor"), kSigninPeriod),
      successAllowed_(successAllowed),
      errorAllowed_(errorAllowed) {}

void VmwSigninMon::Init() { reported_ = false; }

void VmwSigninMon::Check() {
  if (!IsProcessRunning(QLatin1String(kSigninClient))) {
    reported_ = false;
    return;
  }
  if (reported_ || (!successAllowed_ && !errorAllowed_)) {
    return;
  }
  qDebug() << "VmwSigninMon: check status";
  const QByteArray user = GetUsername().toUtf8();
  if (successAllowed_ && QueryStatus(QStringLiteral("success"))) {
    RaiseEvent(kSigninSucceeded, user);
    reported_ = true;
  }
  if (errorAllowed_ && QueryStatus(QStringLiteral("error"))) {
    RaiseEvent(kSigninFailed, user);
    reported_ = true;
  }
}

QString VmwSigninMon::GetUsername() {
  const QString answer = RunSigninScript(QStringLiteral("user"));
  qDebug() << "VmwSigninMon::GetUsername: " << answer;
  return UsernameFrom(answer);
}

QString VmwSigninMon::UsernameFrom(const QString &answer) {
  const QStringList fields = answer.split(QLatin1Char(':'), Qt::SkipEmptyParts);
  if (fields.size() != 4) {
    return answer;
  }
  if (fields[2].trimmed().isEmpty()) {
    return fields[1];
  }
  return fields[1] + QLatin1Char('/') + fields[2];
}

bool VmwSigninMon::QueryStatus(const QString &word) { return !RunSigninScript(word).isEmpty(); }

}  // namespace ov
