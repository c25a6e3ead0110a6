#include "check/check_machine.h"

#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>
#include <ctime>
#include <optional>

#include "base/socket_address.h"
#include "base/unique_fd.h"
#include "check/checked_files.h"
#include "event/service_socket.h"
#include "support/support.h"

namespace ov {
namespace {

using std::chrono::milliseconds;
using std::chrono::nanoseconds;

constexpr char kQuiet[] = "host=127.0.0.1\nformatString=[ID]\n";

// A service that runs as this user, and was started long after the files were written.
ServiceProcess Service() {
  ServiceProcess service{};
  service.user = geteuid();
  service.startTime = std::chrono::hours(24 * 365 * 200);
  service.environment = QList<QByteArray>();
  return service;
}

// The sentences about this machine, whose service listens.
std::string FoundOnMachine(const std::string &settings,
                           const std::optional<ServiceProcess> &service = Service(),
                           const std::string &event = "") {
  const UniqueFd socket(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
  const sockaddr_un address = ServiceSocketAddress();
  EXPECT_EQ(bind(socket.Get(), AsSocketAddress(address), sizeof(address)), 0);
  EXPECT_EQ(listen(socket.Get(), 1), 0);
  Findings findings;
  CheckMachine(SettingsWith(settings), DefinitionsWith(""), service, Q(event), findings);
  unlink(kServiceSocketPath);
  return Sentences(findings);
}

TEST(CheckMachineTest, MachineInOrderHasNoFindings) { EXPECT_EQ(FoundOnMachine(kQuiet), ""); }

// --- The service -------------------------------------------------------------------------------

TEST(CheckMachineTest, ServiceThatDoesNotRunIsFoundAndItsSocketIsStale) {
  const DefinitionsFile definitions = DefinitionsWith("");
  Findings findings;
  CheckMachine(SettingsWith(kQuiet), definitions, std::nullopt, {}, findings);
  EXPECT_EQ(Sentences(findings),
            "not-running: the service does not run: a client waits 30 seconds for it and then "
            "loses its event. Start ov-event-logger -s <>");
  WriteFile(kServiceSocketPath, "");
  Findings stale;
  CheckMachine(SettingsWith(kQuiet), definitions, Service(), {}, stale);
  EXPECT_EQ(Sentences(stale),
            "stale-socket: /tmp/ov-events is there, but nobody listens: the next service cannot "
            "bind its socket and ends. Remove the file <>");
}

TEST(CheckMachineTest, ServiceThatListensAndIsNotSeenIsANote) {
  EXPECT_EQ(FoundOnMachine(kQuiet, std::nullopt),
            "not-running: a service listens, but this user may not see its process: its user, "
            "start and environment remain unknown <>");
}

TEST(CheckMachineTest, SocketThatIsGoneIsFound) {
  const UniqueFd socket(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
  const sockaddr_un address = ServiceSocketAddress();
  ASSERT_EQ(bind(socket.Get(), AsSocketAddress(address), sizeof(address)), 0);
  ASSERT_EQ(listen(socket.Get(), 1), 0);
  unlink(kServiceSocketPath);
  Findings findings;
  CheckMachine(SettingsWith(kQuiet), DefinitionsWith(""), Service(), {}, findings);
  EXPECT_EQ(Sentences(findings),
            "stale-socket: a service listens, but /tmp/ov-events is gone, and nobody can connect "
            "to it. Restart the service <>");
}

// The kernel's times of a file, by which a test may start a service.
nanoseconds ChangeTime(const struct stat &status) {
  return std::chrono::seconds(status.st_ctim.tv_sec) + nanoseconds(status.st_ctim.tv_nsec);
}

TEST(CheckMachineTest, DefinitionsThatChangedAfterTheStartAreOld) {
  std::filesystem::remove(kSystemDefinitionsPath);
  constexpr char kReal[] = "/tmp/real";
  struct stat real {};
  struct stat link {};
  WriteFile(kReal, "");
  std::this_thread::sleep_for(milliseconds(20));
  std::filesystem::create_symlink(kReal, kFallbackDefinitionsPath);
  ASSERT_TRUE(stat(kReal, &real) == 0 && lstat(kFallbackDefinitionsPath, &link) == 0);
  const auto found = [](nanoseconds start, const char *path = kFallbackDefinitionsPath) {
    ServiceProcess service = Service();
    service.startTime = start - milliseconds(100);
    Findings findings;
    CheckMachine(SettingsWith(kQuiet), DefinitionsFile(QLatin1String(path)), service, {}, findings);
    return findings.Has("old-definitions");
  };
  ASSERT_LT(ChangeTime(real), ChangeTime(link));
  EXPECT_FALSE(found(ChangeTime(link)));
  EXPECT_TRUE(found(ChangeTime(link) - nanoseconds(1)));
  EXPECT_FALSE(found(nanoseconds(0), kReal)) << "the service reads no other file";
  std::this_thread::sleep_for(milliseconds(20));
  WriteFile(kReal, "x");
  ASSERT_EQ(stat(kReal, &real), 0);
  ASSERT_LT(ChangeTime(link), ChangeTime(real));
  EXPECT_FALSE(found(ChangeTime(real)));
  EXPECT_TRUE(found(ChangeTime(real) - nanoseconds(1)));
}

TEST(CheckMachineTest, OldDefinitionsAreNamed) {
  std::filesystem::remove(kSystemDefinitionsPath);
  ServiceProcess service = Service();
  service.startTime = {};
  EXPECT_EQ(FoundOnMachine(kQuiet, service),
            "old-definitions: /tmp/ov-event-def.csv has changed since the service started, and the "
            "service reads it at its start alone. Restart the service <>");
}

TEST(CheckMachineTest, FewDescriptorsAreFoundOverTcp) {
  const TcpCollector collector;
  const std::string tcp =
      std::string(kQuiet) + "protocol=syslog-tcp\nport=" + std::to_string(collector.Port());
  ServiceProcess service = Service();
  EXPECT_EQ(FoundOnMachine(tcp, service), "");
  service.descriptors = 7 * 24 * 360;
  EXPECT_EQ(FoundOnMachine(tcp, service), "");
  *service.descriptors -= 1;
  EXPECT_THAT(FoundOnMachine(tcp, service), testing::HasSubstr("open 60479 descriptors, "));
  service.descriptors = 1024;
  EXPECT_EQ(FoundOnMachine(tcp, service),
            "few-descriptors: the service may open 1024 descriptors, and each try to connect to a "
            "TCP collector that refuses leaves one open: after 2.8 hours without a collector it "
            "ends. Raise the limit (LimitNOFILE=) above 60480, which is a week <>");
  EXPECT_EQ(FoundOnMachine(kQuiet, service), "");
}

// --- The collector and the network -------------------------------------------------------------

TEST(CheckMachineTest, CollectorElsewhereIsNotReachedOverTheLoopback) {
  EXPECT_EQ(FoundOnMachine("host=192.0.2.1\nformatString=[ID]"),
            "loopback-only: only the loopback interface is up: lines name this machine by "
            "127.0.0.1, and a collector elsewhere gets none <>");
  EXPECT_EQ(FoundOnMachine("host=localhost\nformatString=[ID]"), "");
}

TEST(CheckMachineTest, MissingHostIsNotLookedUp) {
  EXPECT_THAT(FoundOnMachine("formatString=[ID]"), testing::StartsWith("loopback-only: "));
}

TEST(CheckMachineTest, HostThatIsWrongIsNotLookedUp) {
  Findings findings;
  findings.Add("host-not-ipv4", {}, {});
  CheckMachine(SettingsWith("host=nowhere.invalid\nformatString=[ID]"), DefinitionsWith(""),
               Service(), {}, findings);
  EXPECT_FALSE(findings.Has("unresolved-host"));
}

TEST(CheckMachineTest, NameWithoutAnAddressIsFound) {
  EXPECT_THAT(
      FoundOnMachine("host=nowhere.invalid\nformatString=[ID]"),
      testing::MatchesRegex(
          "unresolved-host: \"nowhere.invalid\" has no IPv4 address here \\([^)]+\\): every "
          "line is lost until the settings change or the service restarts. Check the name "
          "and the name server <>\\|loopback-only: .*"));
}

TEST(CheckMachineTest, CollectorThatRefusesIsFoundOverTcp) {
  const std::string port = std::to_string(ClosedPort());
  const std::string settings = std::string(kQuiet) + "port=" + port;
  EXPECT_EQ(FoundOnMachine(settings + "\nprotocol=syslog-tcp"),
            "collector-refuses: 127.0.0.1:" + port +
                " does not accept the connection (Connection refused): events wait, each change of "
                "the settings too, and a restart loses what waits <>");
  EXPECT_EQ(FoundOnMachine(settings), "");
}

TEST(CheckMachineTest, PortIsThatOfTheService) {
  const TcpCollector collector;
  EXPECT_EQ(FoundOnMachine(std::string(kQuiet) +
                           "protocol=syslog-tcp\nport=" + std::to_string(collector.Port() + 65536)),
            "");
  EXPECT_TRUE(collector.HasConnection());
}

// --- Dates -------------------------------------------------------------------------------------

constexpr char kDated[] = "host=127.0.0.1\nformatString=[DATE]\n";

TEST(CheckMachineTest, ZoneOtherThanUtcIsFoundWithADate) {
  setenv("TZ", "XXX-5:30", 1);
  tzset();
  EXPECT_EQ(FoundOnMachine(kDated),
            "time-zone: [DATE] is local time, here UTC+05:30, and does not say so: collectors take "
            "it for their own <>");
  EXPECT_EQ(FoundOnMachine(kQuiet), "");
  setenv("TZ", "XXX11", 1);
  tzset();
  EXPECT_THAT(FoundOnMachine(kDated), testing::HasSubstr(" here UTC-11:00, "));
  setenv("TZ", "UTC", 1);
  tzset();
  EXPECT_EQ(FoundOnMachine(kDated), "");
}

TEST(CheckMachineTest, EnvironmentThatIsNotSeenIsANoteWithADate) {
  ServiceProcess service = Service();
  service.environment.reset();
  EXPECT_EQ(FoundOnMachine(kDated, service),
            "month-names: this user may not see the service's environment: in which language and "
            "time zone it writes [DATE] remains unknown, and lines here have this user's <>");
  EXPECT_EQ(FoundOnMachine(kQuiet, service), "");
}

// --- Monitors ----------------------------------------------------------------------------------

TEST(CheckMachineTest, OnlyScriptsOfMonitorsThatAreOnAndConcernTheEventRun) {
  for (const char *script : {"perf.sh", "usb-devices.sh", "vmw-signin-status.sh"}) {
    std::filesystem::remove(std::string("/usr/lib/orvan/ov-event-logger/") + script);
  }
  EXPECT_EQ(FoundOnMachine(std::string(kQuiet) + "usbDevMon=1"),
            "no-script: /usr/lib/orvan/ov-event-logger/usb-devices.sh does not exist: its monitor "
            "sees nothing. Install it, or switch the monitor off <sys05 sys06 sys07>");
  const std::string both = std::string(kQuiet) + "perfMon=1\nusbDevMon=1\n";
  EXPECT_THAT(FoundOnMachine(both), testing::HasSubstr("|no-script: "));
  EXPECT_THAT(
      FoundOnMachine(both, Service(), "perf02"),
      testing::AllOf(testing::HasSubstr("/perf.sh "), testing::Not(testing::HasSubstr("usb"))));
  EXPECT_EQ(FoundOnMachine(both, Service(), "sec03"), "");
}

TEST(CheckMachineTest, MissingPgrepIsFoundForTheSigninMonitor) {
  setenv("PATH", "/nowhere", 1);
  EXPECT_EQ(FoundOnMachine(std::string(kQuiet) + "vmwSigninMon=1", Service(), "x"),
            "no-pgrep: there is no pgrep: the sign-in monitor sees no client and raises nothing. "
            "Install the package procps <sec03 sec04>");
  EXPECT_EQ(FoundOnMachine(kQuiet), "");
}

TEST(CheckMachineTest, StatusOfTheAgentIsANote) {
  const std::string settings = std::string(kQuiet) + "agentConnMon=1";
  EXPECT_EQ(FoundOnMachine(settings),
            "status-file: /tmp/ovwsagentstatus has no third line to read: the connection counts as "
            "not yet tried, or, after a status, as failed <net02 net03>");
  WriteFile("/tmp/ovwsagentstatus", "a\nb\nCONNECTED\n");
  EXPECT_EQ(FoundOnMachine(settings),
            "status-file: /tmp/ovwsagentstatus says \"CONNECTED\" <net02 net03>");
  EXPECT_EQ(FoundOnMachine(kQuiet), "");
}

}  // namespace
}  // namespace ov
