#include "check/service_process.h"

#include <grp.h>
#include <unistd.h>

#include <QDir>
#include <QFile>
#include <QList>
#include <cstring>
#include <ctime>

#include "event/service_socket.h"

namespace ov {
namespace {

constexpr char kProgram[] = "ov-event-logger";

QByteArray ReadFile(const QString &path) {
  QFile file(path);
  return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

// The value of a line "NAME VALUE..." in a file of /proc.
QList<QByteArray> Fields(const QByteArray &text, const char *name) {
  for (const QByteArray &line : text.split('\n')) {
    if (line.startsWith(name)) {
      return line.mid(static_cast<int>(std::strlen(name))).simplified().split(' ');
    }
  }
  return {};
}

std::chrono::nanoseconds Now(clockid_t clock) {
  timespec now{};
  clock_gettime(clock, &now);
  return std::chrono::seconds(now.tv_sec) + std::chrono::nanoseconds(now.tv_nsec);
}

std::chrono::nanoseconds StartTime(const QString &folder) {
  // Field 22 of proc(5), counted in clock ticks since the machine started; the name of the program
  // in parentheses, which may hold blanks, is field 2.
  const QByteArray stat = ReadFile(folder + QLatin1String("/stat"));
  const QList<QByteArray> fields = stat.mid(stat.lastIndexOf(')') + 2).split(' ');
  const std::chrono::nanoseconds tick =
      std::chrono::nanoseconds(std::chrono::seconds(1)) / sysconf(_SC_CLK_TCK);
  return Now(CLOCK_REALTIME) - Now(CLOCK_BOOTTIME) + fields.value(19).toLongLong() * tick;
}

bool IsService(const QString &folder) {
  const QList<QByteArray> words = ReadFile(folder + QLatin1String("/cmdline")).split('\0');
  return words.size() == 3 && words[1] == "-s" &&
         words[0].mid(words[0].lastIndexOf('/') + 1) == kProgram;
}

ServiceProcess Read(pid_t id, const QString &folder) {
  ServiceProcess service{};
  service.id = id;
  const QByteArray status = ReadFile(folder + QLatin1String("/status"));
  service.user = Fields(status, "Uid:").value(1).toUInt();  // the effective one
  service.group = Fields(status, "Gid:").value(1).toUInt();
  for (const QByteArray &group : Fields(status, "Groups:")) {
    if (!group.isEmpty()) {
      service.groups.push_back(group.toUInt());
    }
  }
  service.startTime = StartTime(folder);
  bool isNumber = false;
  const std::int64_t limit = Fields(ReadFile(folder + QLatin1String("/limits")), "Max open files")
                                 .value(0)
                                 .toLongLong(&isNumber);
  if (isNumber) {
    service.descriptors = limit;
  }
  QFile environment(folder + QLatin1String("/environ"));
  if (environment.open(QIODevice::ReadOnly)) {
    service.environment = environment.readAll().split('\0');
  }
  return service;
}

}  // namespace

std::optional<ServiceProcess> FindService() {
  const QStringList folders = QDir(QStringLiteral("/proc")).entryList(QDir::Dirs);
  for (const QString &name : folders) {
    const pid_t id = name.toInt();
    const QString folder = QStringLiteral("/proc/") + name;
    if (id > 0 && IsService(folder)) {
      return Read(id, folder);
    }
  }
  return std::nullopt;
}

void AdoptEnvironment(const ServiceProcess &service) {
  if (!service.environment) {
    return;
  }
  for (const char *name : {"LC_ALL", "LC_TIME", "LANG", "TZ", "PATH"}) {
    qunsetenv(name);
    for (const QByteArray &variable : *service.environment) {
      if (variable.startsWith(QByteArray(name) + '=')) {
        qputenv(name, variable.mid(variable.indexOf('=') + 1));
      }
    }
  }
}

bool BecomeUserOf(const ServiceProcess &service) {
  return geteuid() == service.user ||
         (geteuid() == 0 && setgroups(service.groups.size(), service.groups.data()) == 0 &&
          setresgid(service.group, service.group, service.group) == 0 &&
          setresuid(service.user, service.user, service.user) == 0);
}

bool HasListener() {
  constexpr char kAcceptsConnections[] = "00010000";  // __SO_ACCEPTCON in the column of flags
  for (const QByteArray &line : ReadFile(QStringLiteral("/proc/net/unix")).split('\n')) {
    const QList<QByteArray> columns = line.simplified().split(' ');
    if (columns.value(3) == kAcceptsConnections && columns.value(7) == kServiceSocketPath) {
      return true;
    }
  }
  return false;
}

}  // namespace ov
