#include "service/cycle_monitors.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <QtGlobal>
#include <algorithm>
#include <cerrno>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <thread>

#include "config/settings_fixture.h"
#include "support/events.h"
#include "support/files.h"
#include "support/output.h"
#include "support/polling.h"
#include "support/programs.h"
#include "support/threads.h"
#include "support/wrapped_calls.h"

namespace ov {
namespace {

constexpr char kAllEnabled[] = "usbDevMon=1\nvmwSigninMon=1\nagentConnMon=1\nperfMon=1\n";
constexpr char kLowThresholds[] = "cpuThreshold=11\nmemThreshold=22\ndiskThreshold=33\n";
constexpr char kAllStarted[] =
    "Starting monitor: USB Device Monitor\n"
    "Starting monitor: Omnissa Signin Monitor\n"
    "Starting monitor: Secure Connection Monitor\n"
    "Starting monitor: Performance Monitor\n";

class CycleMonitorsTest : public SettingsTest {
 protected:
  CycleMonitorsTest() {
    TakeEvents();
    // The checks' debug messages come when they come.
    qInstallMessageHandler([](QtMsgType type, const QMessageLogContext & /*context*/,
                              const QString & /*message*/) { EXPECT_EQ(type, QtDebugMsg); });
  }
  ~CycleMonitorsTest() override { qInstallMessageHandler(nullptr); }

  Output Construct(const std::string &settings) {
    Parse(settings);
    return OutputOf([this] { monitors_.emplace(settings_); });
  }

  Output StopEnabled() {
    return OutputOf([this] { monitors_->StopEnabled(); });
  }

  Output Destroy() {
    return OutputOf([this] { monitors_.reset(); });
  }

  std::optional<CycleMonitors> monitors_;
};

TEST_F(CycleMonitorsTest, EnabledMonitorsAreStartedInTheirOrder) {
  EXPECT_EQ(Construct(kAllEnabled), (Output{kAllStarted, ""}));
}

TEST_F(CycleMonitorsTest, NoMonitorIsEnabledByDefault) {
  const std::size_t before = CountThreads();
  EXPECT_EQ(Construct(""), (Output{"", ""}));
  EXPECT_TRUE(Eventually([&] { return CountThreads() == before; }));
}

TEST_F(CycleMonitorsTest, MonitorsThatAreNotEnabledAreNeitherStoppedNorNamed) {
  Construct("usbDevMon=0\nvmwSigninMon=0\nagentConnMon=0\nperfMon=-1\n");
  EXPECT_EQ(StopEnabled(), (Output{"", ""}));
  EXPECT_EQ(Destroy(), (Output{"", ""}));
}

TEST_F(CycleMonitorsTest, EachSettingEnablesItsMonitorAlone) {
  const std::map<std::string, std::string> names = {{"usbDevMon", "USB Device Monitor"},
                                                    {"vmwSigninMon", "Omnissa Signin Monitor"},
                                                    {"agentConnMon", "Secure Connection Monitor"},
                                                    {"perfMon", "Performance Monitor"}};
  std::string allOff;
  for (const auto &[key, name] : names) {
    allOff += key + "=0\n";
  }
  for (const auto &[key, name] : names) {
    EXPECT_EQ(Construct(allOff + key + "=1\n"), (Output{"Starting monitor: " + name + "\n", ""}));
    EXPECT_EQ(StopEnabled(), (Output{"Stopping monitor: " + name + "\n", ""}));
    EXPECT_EQ(Destroy(), (Output{"", ""}));
  }
}

TEST_F(CycleMonitorsTest, StartedMonitorsAreStoppedInTheSameOrder) {
  Construct(kAllEnabled);
  EXPECT_EQ(StopEnabled(), (Output{"Stopping monitor: USB Device Monitor\n"
                                   "Stopping monitor: Omnissa Signin Monitor\n"
                                   "Stopping monitor: Secure Connection Monitor\n"
                                   "Stopping monitor: Performance Monitor\n",
                                   ""}));
}

TEST_F(CycleMonitorsTest, StoppedMonitorsAreDestroyedSilently) {
  const std::size_t before = CountThreads();
  Construct(kAllEnabled);
  StopEnabled();
  EXPECT_EQ(Destroy(), (Output{"", ""}));
  EXPECT_TRUE(Eventually([&] { return CountThreads() == before; }));
}

TEST_F(CycleMonitorsTest, DestructionStopsTheOthersInReverseOrder) {
  Construct(kAllEnabled);
  EXPECT_EQ(Destroy(), (Output{"Stopping monitor: Performance Monitor\n"
                               "Stopping monitor: Secure Connection Monitor\n"
                               "Stopping monitor: Omnissa Signin Monitor\n"
                               "Stopping monitor: USB Device Monitor\n",
                               ""}));
}

TEST_F(CycleMonitorsTest, MonitorsThatCannotStartDoNotKeepTheCycleFromRunning) {
  const FailingThreadStarts failing(EAGAIN);
  const Output started = Construct(kAllEnabled);
  EXPECT_EQ(started.out, kAllStarted);
  EXPECT_EQ(started.err,
            "Error starting monitor: USB Device Monitor\n"
            "pthread_create: Resource temporarily unavailable\n"
            "Error starting monitor: Omnissa Signin Monitor\n"
            "pthread_create: Resource temporarily unavailable\n"
            "Error starting monitor: Secure Connection Monitor\n"
            "pthread_create: Resource temporarily unavailable\n"
            "Error starting monitor: Performance Monitor\n"
            "pthread_create: Resource temporarily unavailable\n");
  EXPECT_EQ(StopEnabled().out,
            "USB Device Monitor is not running\n"
            "Omnissa Signin Monitor is not running\n"
            "Secure Connection Monitor is not running\n"
            "Performance Monitor is not running\n");
}

// The four monitors over scripts and a file that give reason for every event.
class CycleMonitorsEventTest : public CycleMonitorsTest {
 protected:
  CycleMonitorsEventTest() {
    WriteScript(kUsbScriptPath, "echo $$");  // another device in each run
    WriteScript(kPerfScriptPath, "echo cpu=50; echo mem=60; echo disk=70");
    WriteScript(kSigninScriptPath, "echo alice");
    WriteScript("/tmp/bin/pgrep", "echo 1");
    WriteFile(kAgentStatusPath, "\n\nCONNECTED\n");
    qInstallMessageHandler(LoseConnectionOnceItWasSeen);
  }

  // What is raised with these settings until each monitor has made three checks.
  Events Raised(const std::string &settings) {
    Construct(kAllEnabled + settings);
    std::map<std::thread::id, int> checks;
    const auto checked = [&] {
      for (const Sleep &sleep : TakeSleeps()) {
        ++checks[sleep.thread];
      }
      const auto often = [](const auto &entry) { return entry.second >= 3; };
      return checks.size() == 4 && std::all_of(checks.begin(), checks.end(), often);
    };
    EXPECT_TRUE(Eventually(checked));
    StopEnabled();
    return TakeEvents();
  }

 private:
  // The agent's monitor says so in each check, once it has read the status.
  static void LoseConnectionOnceItWasSeen(QtMsgType type, const QMessageLogContext & /*context*/,
                                          const QString &message) {
    EXPECT_EQ(type, QtDebugMsg);
    if (message.startsWith(QLatin1String("AgentConnMon"))) {
      WriteFile(kAgentStatusPath, "\n\nLOST\n");
    }
  }

  FirstInPath folder_{"/tmp/bin"};
};

TEST_F(CycleMonitorsEventTest, NothingIsRaisedThatIsNotAllowed) {
  EXPECT_EQ(Raised(std::string("allowed=perf04 sys01\n") + kLowThresholds), Events());
}

class CycleMonitorsAllowedTest : public CycleMonitorsEventTest,
                                 public testing::WithParamInterface<const char *> {};

TEST_P(CycleMonitorsAllowedTest, IsRaisedAlone) {
  const std::string id = GetParam();
  std::set<std::string> ids;
  for (const auto &[raised, values] : Raised(kLowThresholds + ("allowed=" + id) + "\n")) {
    ids.insert(raised);
  }
  EXPECT_THAT(ids, testing::ElementsAre(id));
}

INSTANTIATE_TEST_SUITE_P(Events, CycleMonitorsAllowedTest,
                         testing::Values("sys05", "sys06", "sys07", "sec03", "sec04", "net02",
                                         "net03", "perf01", "perf02", "perf03"),
                         [](const auto &instance) { return instance.param; });

TEST_F(CycleMonitorsEventTest, EachResourceHasTheThresholdOfItsSetting) {
  EXPECT_EQ(Raised(std::string("allowed=perf01 perf02 perf03\n") + kLowThresholds),
            (Events{{"perf01", "50.00% > 11.00%"},
                    {"perf02", "60.00% > 22.00%"},
                    {"perf03", "70.00% > 33.00%"}}));
}

TEST_F(CycleMonitorsEventTest, ChangeOfTheSettingsReachesNoMonitorThatRuns) {
  Construct("perfMon=1\nusbDevMon=1\nallowed=perf01\ncpuThreshold=90\n");
  Parse("perfMon=1\nusbDevMon=0\nallowed=perf01 perf02\ncpuThreshold=1\nmemThreshold=1\n");
  TakeSleeps();
  constexpr unsigned kPeriodOfPerfMon = 5;
  int checks = 0;
  EXPECT_TRUE(Eventually([&] {
    for (const Sleep &sleep : TakeSleeps()) {
      checks += sleep.seconds == kPeriodOfPerfMon ? 1 : 0;
    }
    return checks >= 3;
  }));
  EXPECT_EQ(StopEnabled().out,
            "Stopping monitor: USB Device Monitor\nStopping monitor: Performance Monitor\n");
  EXPECT_EQ(TakeEvents(), Events());
}

}  // namespace
}  // namespace ov
