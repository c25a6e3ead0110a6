#include "check/service_process.h"

#include <sys/stat.h>
#include <unistd.h>

#include <QDir>
#include <QFile>
#include <QList>
#include <cstring>

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

std::int64_t StartTime(const QString &folder) {
  // Field 22 of proc(5), counted in clock ticks since the machine started; the name of the program
  // in parentheses, which may hold blanks, is field 2.
  const QByteArray stat = ReadFile(folder + QLatin1String("/stat"));
  const QList<QByteArray> fields = stat.mid(stat.lastIndexOf(')') + 2).split(' ');
  const std::int64_t bootTime =
      Fields(ReadFile(QStringLiteral("/proc/stat")), "btime ").value(0).toLongLong();
  return bootTime + fields.value(19).toLongLong() / sysconf(_SC_CLK_TCK);
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
