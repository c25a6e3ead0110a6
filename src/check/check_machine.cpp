#include "check/check_machine.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <netdb.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <QDateTime>
#include <QFileInfo>
#include <QStandardPaths>
#include <cerrno>
#include <chrono>
#include <cstring>

#include "base/socket_address.h"
#include "base/unique_fd.h"
#include "check/built_in_monitors.h"
#include "check/line_maker.h"
#include "check/try_script.h"
#include "event/built_in_events.h"
#include "event/service_socket.h"
#include "monitors/agent_conn_mon.h"
#include "output/collector_address.h"
#include "output/host_identity.h"
#include "output/message_formatter.h"
#include "service/event_catalogue.h"
#include "service/processing_thread.h"

namespace ov {
namespace {

using std::chrono::milliseconds;

constexpr milliseconds kCollectorPatience{200};
constexpr char kLoopback[] = "127.";
constexpr std::chrono::hours kEnoughTime{7 * 24};
constexpr milliseconds kStartTolerance{100};  // the kernel counts both times in ticks

// The error of a connection to the collector, 0 if it accepts, or nothing if it does not answer.
std::optional<int> TryConnection(const sockaddr_in &collector) {
  const UniqueFd connection(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
  if (connect(connection.Get(), AsSocketAddress(collector), sizeof(collector)) == 0) {
    return 0;
  }
  if (errno != EINPROGRESS) {
    return errno;
  }
  pollfd awaited{connection.Get(), POLLOUT, 0};
  if (poll(&awaited, 1, static_cast<int>(kCollectorPatience.count())) != 1) {
    return std::nullopt;
  }
  int error = 0;
  socklen_t size = sizeof(error);
  getsockopt(connection.Get(), SOL_SOCKET, SO_ERROR, &error, &size);
  return error;
}

// When the file, or the link that leads to it, was last changed. Unlike the time of modification,
// this one sees a file that was put in place by a rename.
std::chrono::nanoseconds ChangeTime(const char *path) {
  const auto time = [](const struct stat &status) {
    return std::chrono::seconds(status.st_ctim.tv_sec) +
           std::chrono::nanoseconds(status.st_ctim.tv_nsec);
  };
  struct stat file {};
  struct stat link {};
  if (stat(path, &file) != 0 || lstat(path, &link) != 0) {
    return {};
  }
  return std::max(time(file), time(link));
}

class MachineCheck {
 public:
  MachineCheck(const SettingsFile &file, const DefinitionsFile &definitions,
               const std::optional<ServiceProcess> &service, const QString &event,
               Findings &findings)
      : file_(file),
        settings_(file.InForce()),
        definitions_(definitions),
        service_(service),
        event_(event),
        findings_(findings) {}

  void CheckAll() {
    CheckService();
    CheckSocket();
    BecomeUser();
    CheckCollector();
    CheckAddress();
    CheckDates();
    CheckScripts();
    CheckAgent();
  }

 private:
  void Add(const char *cause, const QString &sentence, const QStringList &events = {}) {
    findings_.Add(cause, {}, sentence, events);
  }

  void CheckService() {
    if (!service_) {
      if (!HasListener()) {
        Add("not-running",
            QStringLiteral("the service does not run: a client waits 30 seconds for it "
                           "and then loses its event. Start ov-event-logger -s"));
      } else {
        findings_.AddUnseen(
            "not-running",
            QStringLiteral("a service listens, but this user may not see its process: "
                           "its user, start and environment remain unknown"));
      }
      return;
    }
    if (IsDefinitionsOfService() && ChangeTime(definitions_.Path().toUtf8().constData()) >
                                        service_->startTime + kStartTolerance) {
      Add("old-definitions",
          QStringLiteral(
              "%1 has changed since the service started, and the service reads it at its "
              "start alone. Restart the service")
              .arg(definitions_.Path()));
    }
    CheckDescriptors();
  }

  bool IsSettingsOfService() const { return file_.Path() == QLatin1String(kSettingsPath); }
  bool IsDefinitionsOfService() const {
    const char *const path = FindDefinitionsFile();
    return path != nullptr && definitions_.Path() == QLatin1String(path);
  }

  // From here on this program can do what the service can.
  void BecomeUser() {
    if (!service_) {
      return;
    }
    const QString user = QString::number(service_->user);
    if (!BecomeUserOf(*service_)) {
      findings_.AddUnseen(
          "settings-not-readable-by-service",
          QStringLiteral(
              "the service runs as user %1, whose rights this user does not have: whether "
              "it may read its files remains unknown, and scripts run as this user")
              .arg(user));
      return;
    }
    const auto isDenied = [](const QString &path) {
      return access(path.toUtf8().constData(), R_OK) != 0;
    };
    if (IsSettingsOfService() && file_.Exists() && isDenied(file_.Path())) {
      Add("settings-not-readable-by-service",
          QStringLiteral(
              "the service runs as user %1, who may not read %2: it keeps the values from "
              "before. Give the file mode 0644")
              .arg(user, file_.Path()));
    }
    if (IsDefinitionsOfService() && definitions_.IsReadable() && isDenied(definitions_.Path())) {
      findings_.Add(
          "unreadable-definitions", {definitions_.Path(), 0, 0, {}},
          QStringLiteral("the service runs as user %1, who may not read this file: after its "
                         "next start no event is defined. Give the file mode 0644")
              .arg(user));
    }
  }

  void CheckDescriptors() {
    if (settings_.protocol() != Protocol::kTcp || !service_->descriptors) {
      return;
    }
    const auto time = *service_->descriptors * kReconnectPause;
    if (time < kEnoughTime) {
      Add("few-descriptors",
          QStringLiteral(
              "the service may open %1 descriptors, and each try to connect to a TCP collector "
              "that refuses leaves one open: after %2 hours without a collector it ends. Raise the "
              "limit (LimitNOFILE=) above %3, which is a week")
              .arg(QString::number(*service_->descriptors),
                   QString::number(static_cast<double>(time.count()) / 3600, 'f', 1),
                   QString::number(kEnoughTime / kReconnectPause)));
    }
  }

  void CheckSocket() {
    struct stat status {};
    if (lstat(kServiceSocketPath, &status) != 0) {
      if (HasListener()) {
        Add("stale-socket",
            QStringLiteral("a service listens, but %1 is gone, and nobody can connect "
                           "to it. Restart the service")
                .arg(QLatin1String(kServiceSocketPath)));
      }
      return;
    }
    if (!HasListener()) {
      Add("stale-socket", QStringLiteral("%1 is there, but nobody listens: the next service cannot "
                                         "bind its socket and ends. Remove the file")
                              .arg(QLatin1String(kServiceSocketPath)));
    } else if (access(kServiceSocketPath, W_OK) != 0) {
      Add("socket-denied",
          QStringLiteral("this user may not write to %1: ov-event-logger -e waits 30 "
                         "seconds and fails. Give the socket mode 0666")
              .arg(QLatin1String(kServiceSocketPath)));
    }
  }

  void CheckAddress() {
    const QString address = GetLocalIpAddress();
    if (address.isEmpty()) {
      Add("no-address", QStringLiteral("no network interface is up and has an IPv4 address: the "
                                       "service holds every event back until one is"));
    } else if (address.startsWith(QLatin1String(kLoopback)) && !collectorIsHere_) {
      Add("loopback-only",
          QStringLiteral("only the loopback interface is up: lines name this machine "
                         "by %1, and a collector elsewhere gets none")
              .arg(address));
    }
  }

  void CheckCollector() {
    if (settings_.host().isEmpty() || findings_.Has("host-not-ipv4")) {
      return;
    }
    sockaddr_in collector{};
    const int error = FindAddress(settings_.host(), SOCK_STREAM, collector.sin_addr);
    if (error != 0) {
      Add("unresolved-host",
          QStringLiteral("%1 has no IPv4 address here (%2): every line is lost until the settings "
                         "change or the service restarts. Check the name and the name server")
              .arg(Quoted(settings_.host()), QString::fromLocal8Bit(gai_strerror(error))));
      return;
    }
    collectorIsHere_ =
        QLatin1String(inet_ntoa(collector.sin_addr)).startsWith(QLatin1String(kLoopback));
    if (settings_.protocol() != Protocol::kTcp) {
      return;
    }
    collector.sin_family = AF_INET;
    collector.sin_port = htons(static_cast<std::uint16_t>(settings_.port()));
    const QString name = QStringLiteral("%1:%2").arg(
        settings_.host(), QString::number(static_cast<std::uint16_t>(settings_.port())));
    const std::optional<int> failure = TryConnection(collector);
    if (!failure) {
      findings_.AddUnseen(
          "collector-refuses",
          QStringLiteral("%1 has not answered within %2 ms: whether it accepts lines "
                         "over TCP remains unknown")
              .arg(name, QString::number(kCollectorPatience.count())));
    } else if (*failure != 0) {
      Add("collector-refuses",
          QStringLiteral("%1 does not accept the connection (%2): events wait, each change of the "
                         "settings too, and a restart loses what waits")
              .arg(name, QString::fromLocal8Bit(std::strerror(*failure))));
    }
  }

  void CheckDates() {
    if (!settings_.formatString().contains(QLatin1String("[DATE]"))) {
      return;
    }
    if (service_ && !service_->environment) {
      findings_.AddUnseen(
          "month-names",
          QStringLiteral(
              "this user may not see the service's environment: in which language and "
              "time zone it writes [DATE] remains unknown, and lines here have this user's"));
      return;
    }
    if (service_) {
      CheckMonths();
    }
    const QDateTime now = QDateTime::currentDateTime();
    if (now.offsetFromUtc() != 0) {
      Add("time-zone",
          QStringLiteral("[DATE] is local time, here UTC%1, and does not say so: "
                         "collectors take it for their own")
              .arg(now.toOffsetFromUtc(now.offsetFromUtc()).toString(Qt::ISODate).right(6)));
    }
  }

  void CheckMonths() {
    const auto [written, english] = MonthNotInEnglish();
    if (!english.isEmpty()) {
      Add("month-names",
          QStringLiteral("the service writes %1 for %2, and collectors know English months alone: "
                         "they take the time of receipt. Start it with LC_ALL=C.UTF-8")
              .arg(Quoted(written), english));
    }
  }

  void CheckScripts() {
    for (const BuiltInMonitor &monitor : BuiltInMonitors()) {
      if (!monitor.scriptPath.isEmpty() && (settings_.*monitor.isOn)() && Concerns(monitor)) {
        TryScript(monitor, settings_, findings_);
      }
    }
    if (settings_.vmwSigninMon() &&
        QStandardPaths::findExecutable(QStringLiteral("pgrep")).isEmpty()) {
      Add("no-pgrep",
          QStringLiteral("there is no pgrep: the sign-in monitor sees no client and raises "
                         "nothing. Install the package procps"),
          {QLatin1String(kSigninSucceeded), QLatin1String(kSigninFailed)});
    }
  }

  bool Concerns(const BuiltInMonitor &monitor) const {
    return event_.isEmpty() || monitor.events.contains(event_);
  }

  void CheckAgent() {
    if (!settings_.agentConnMon()) {
      return;
    }
    const QString path = QLatin1String(kAgentStatusPath);
    const QString status = AgentConnMon::ReadAgentStatus();
    Add("status-file",
        status.isEmpty()
            ? QStringLiteral(
                  "%1 has no third line to read: the connection counts as not yet tried, "
                  "or, after a status, as failed")
                  .arg(path)
            : QStringLiteral("%1 says %2").arg(path, Quoted(status)),
        {QLatin1String(kAgentConnected), QLatin1String(kAgentFailed)});
  }

  const SettingsFile &file_;
  const Settings &settings_;
  const DefinitionsFile &definitions_;
  const std::optional<ServiceProcess> &service_;
  const QString &event_;
  Findings &findings_;
  bool collectorIsHere_ = false;
};

}  // namespace

void CheckMachine(const SettingsFile &settings, const DefinitionsFile &definitions,
                  const std::optional<ServiceProcess> &service, const QString &event,
                  Findings &findings) {
  MachineCheck(settings, definitions, service, event, findings).CheckAll();
}

}  // namespace ov
