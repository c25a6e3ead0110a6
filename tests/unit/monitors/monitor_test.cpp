#include "monitors/monitor.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <array>
#include <chrono>
#include <cstring>
#include <string>
#include <thread>
#include <vector>

#include "support/events.h"
#include "support/output.h"
#include "support/polling.h"
#include "support/probe_monitor.h"
#include "support/threads.h"

namespace ov {
namespace {

using std::chrono::milliseconds;
using testing::Each;

constexpr milliseconds kPeriod{1000};
constexpr std::chrono::seconds kLongPeriod{8};  // for a busy machine

std::function<void()> UntilStopIsRequested(const ProbeMonitor &monitor) {
  return [&monitor] { EXPECT_TRUE(Eventually([&] { return monitor.StopRequest() == 1; })); };
}

bool HasChecked(const ProbeMonitor &monitor, int times = 1) {
  return Eventually([&] { return monitor.checks >= times; });
}

TEST(MonitorTest, NewMonitorDoesNotRun) {
  const ProbeMonitor monitor;
  EXPECT_FALSE(monitor.IsRunning());
  EXPECT_EQ(monitor.StopRequest(), 0);
}

TEST(MonitorTest, HasTheNameAndThePeriodItWasGiven) {
  const ProbeMonitor monitor(7, "Probe Monitor");
  EXPECT_EQ(monitor.Name(), QStringLiteral("Probe Monitor"));
  EXPECT_EQ(monitor.Period(), 7);
}

TEST(MonitorTest, StopRequestCanBeSet) {
  ProbeMonitor monitor;
  monitor.SetStopRequest(1);
  EXPECT_EQ(monitor.StopRequest(), 1);
}

TEST(MonitorTest, StartPrintsTheName) {
  ProbeMonitor monitor;
  EXPECT_EQ(OutputOf([&] { monitor.Start(); }), (Output{"Starting monitor: Probe Monitor\n", ""}));
  EXPECT_TRUE(monitor.IsRunning());
}

TEST(MonitorTest, NameIsPrintedInUtf8) {
  ProbeMonitor monitor(0, "Gerätewächter €");
  EXPECT_EQ(OutputOf([&] { monitor.Start(); }),
            (Output{"Starting monitor: Gerätewächter €\n", ""}));
}

TEST(MonitorTest, SecondStartOnlyPrintsThatItRunsAlready) {
  ProbeMonitor monitor;
  monitor.Start();
  EXPECT_EQ(OutputOf([&] { monitor.Start(); }), (Output{"Probe Monitor is already running\n", ""}));
}

TEST(MonitorTest, SecondStartMakesNoSecondThread) {
  const std::size_t before = CountThreads();
  ProbeMonitor monitor;
  monitor.Start();
  monitor.Start();
  ASSERT_TRUE(HasChecked(monitor, 3));
  EXPECT_TRUE(Eventually([&] { return CountThreads() == before + 1; }));
  EXPECT_EQ(monitor.inits, 1);
}

TEST(MonitorTest, StopOfOneThatNeverStartedOnlyPrintsThat) {
  ProbeMonitor monitor;
  EXPECT_EQ(OutputOf([&] { monitor.Stop(); }), (Output{"Probe Monitor is not running\n", ""}));
  EXPECT_EQ(monitor.StopRequest(), 0);
}

TEST(MonitorTest, StopPrintsTheName) {
  ProbeMonitor monitor;
  monitor.Start();
  EXPECT_EQ(OutputOf([&] { monitor.Stop(); }), (Output{"Stopping monitor: Probe Monitor\n", ""}));
  EXPECT_EQ(monitor.StopRequest(), 1);
}

TEST(MonitorTest, StopIsPrintedBeforeTheThreadHasEnded) {
  ProbeMonitor monitor;
  monitor.onInit = [&] {
    UntilStopIsRequested(monitor)();
    std::puts("thread ends");
  };
  monitor.Start();
  EXPECT_EQ(OutputOf([&] { monitor.Stop(); }).out.substr(0, 9), "Stopping ");
}

TEST(MonitorTest, StopEndsTheThread) {
  const std::size_t before = CountThreads();
  ProbeMonitor monitor;
  monitor.Start();
  monitor.Stop();
  EXPECT_FALSE(monitor.IsRunning());
  EXPECT_TRUE(Eventually([&] { return CountThreads() == before; }));
}

TEST(MonitorTest, SecondStopOnlyPrintsThatItDoesNotRun) {
  ProbeMonitor monitor;
  monitor.Start();
  monitor.Stop();
  EXPECT_EQ(OutputOf([&] { monitor.Stop(); }), (Output{"Probe Monitor is not running\n", ""}));
}

TEST(MonitorTest, StoppedMonitorStartsAgain) {
  ProbeMonitor monitor;
  monitor.Start();
  monitor.Stop();
  const int checks = monitor.checks;
  monitor.Start();
  EXPECT_TRUE(HasChecked(monitor, checks + 2));
  EXPECT_EQ(monitor.inits, 2);
}

TEST(MonitorTest, StartClearsAnEarlierStopRequest) {
  ProbeMonitor monitor;
  monitor.SetStopRequest(1);
  monitor.Start();
  EXPECT_EQ(monitor.StopRequest(), 0);
  EXPECT_TRUE(HasChecked(monitor, 2));
}

TEST(MonitorTest, DestructionStopsARunningMonitor) {
  const std::size_t before = CountThreads();
  EXPECT_EQ(OutputOf([] { ProbeMonitor().Start(); }),
            (Output{"Starting monitor: Probe Monitor\nStopping monitor: Probe Monitor\n", ""}));
  EXPECT_TRUE(Eventually([&] { return CountThreads() == before; }));
}

TEST(MonitorTest, DestructionOfOneThatDoesNotRunPrintsNothing) {
  EXPECT_EQ(OutputOf([] { const ProbeMonitor monitor; }), (Output{"", ""}));
}

TEST(MonitorTest, InitComesOnceBeforeTheChecksOnTheThreadOfTheMonitor) {
  std::vector<std::thread::id> initThreads;
  std::vector<std::thread::id> checkThreads;
  ProbeMonitor monitor;
  monitor.onInit = [&] {
    EXPECT_EQ(monitor.checks, 0);
    initThreads.push_back(std::this_thread::get_id());
  };
  monitor.onCheck = [&] { checkThreads.push_back(std::this_thread::get_id()); };
  monitor.Start();
  ASSERT_TRUE(HasChecked(monitor, 5));
  monitor.Stop();
  ASSERT_EQ(initThreads.size(), 1U);
  EXPECT_NE(initThreads[0], std::this_thread::get_id());
  EXPECT_THAT(checkThreads, Each(initThreads[0]));
}

TEST(MonitorTest, ReservedIsNeverCalled) {
  ProbeMonitor monitor;
  monitor.Start();
  ASSERT_TRUE(HasChecked(monitor, 20));
  monitor.Stop();
  EXPECT_EQ(monitor.reservedCalls, 0);
}

TEST(MonitorTest, FirstCheckIsMadeAtOnceAndTheNextAPeriodLater) {
  std::vector<std::chrono::steady_clock::time_point> times{std::chrono::steady_clock::now()};
  ProbeMonitor monitor(kLongPeriod.count());
  monitor.onCheck = [&] { times.push_back(std::chrono::steady_clock::now()); };
  monitor.Start();
  ASSERT_TRUE(HasChecked(monitor, 2));
  monitor.Stop();
  EXPECT_LT(times[1] - times[0], kLongPeriod);
  EXPECT_GE(times[2] - times[1], kLongPeriod);
}

TEST(MonitorTest, StopDuringInitGivesNoCheck) {
  ProbeMonitor monitor;
  monitor.onInit = UntilStopIsRequested(monitor);
  monitor.Start();
  monitor.Stop();
  EXPECT_EQ(monitor.checks, 0);
}

TEST(MonitorTest, StopDuringInitTakesNoPeriod) {
  ProbeMonitor monitor(10);
  monitor.onInit = UntilStopIsRequested(monitor);
  monitor.Start();
  EXPECT_LT(TimeOf([&] { monitor.Stop(); }), milliseconds{10'000});
}

TEST(MonitorTest, StopDuringACheckWaitsForItsEndAndForThePeriod) {
  ProbeMonitor monitor(1);
  auto checked = std::chrono::steady_clock::now();
  monitor.onCheck = [&] {
    UntilStopIsRequested(monitor)();
    checked = std::chrono::steady_clock::now();
  };
  monitor.Start();
  ASSERT_TRUE(HasChecked(monitor));
  monitor.Stop();
  EXPECT_GE(std::chrono::steady_clock::now() - checked, kPeriod);
  EXPECT_EQ(monitor.checks, 1);
}

TEST(MonitorTest, StopDuringASleepWaitsForItsEndAndGivesNoFurtherCheck) {
  ProbeMonitor monitor(kLongPeriod.count());
  auto checked = std::chrono::steady_clock::now();
  monitor.onCheck = [&] { checked = std::chrono::steady_clock::now(); };
  monitor.Start();
  ASSERT_TRUE(HasChecked(monitor));
  monitor.Stop();
  EXPECT_GE(std::chrono::steady_clock::now() - checked, kLongPeriod);
  EXPECT_EQ(monitor.checks, 1);
}

TEST(MonitorTest, RaisedEventIsQueuedWithItsValues) {
  TakeEvents();
  ProbeMonitor::RaiseEvent("perf01", "90.00% > 80.00%");
  EXPECT_EQ(TakeEvents(), (Events{{"perf01", "90.00% > 80.00%"}}));
}

TEST(MonitorTest, EventMayBeRaisedWithoutValues) {
  TakeEvents();
  ProbeMonitor::RaiseEvent("net02");
  EXPECT_EQ(TakeEvents(), (Events{{"net02", ""}}));
}

TEST(MonitorTest, RaisedValuesAreCutTo127Bytes) {
  TakeEvents();
  ProbeMonitor::RaiseEvent("sys05", QByteArray(128, 'x'));
  EXPECT_EQ(TakeEvents(), (Events{{"sys05", std::string(127, 'x')}}));
}

TEST(MonitorTest, EventsOfMonitorsThatRunAtOnceAreAllQueued) {
  constexpr int kChecks = 500;
  TakeEvents();
  std::array<ProbeMonitor, 4> monitors;
  for (ProbeMonitor &monitor : monitors) {
    monitor.onCheck = [] { ProbeMonitor::RaiseEvent("x", "y"); };
    monitor.Start();
  }
  int checks = 0;
  for (ProbeMonitor &monitor : monitors) {
    EXPECT_TRUE(HasChecked(monitor, kChecks));
    monitor.Stop();
    checks += monitor.checks;
  }
  EXPECT_EQ(TakeEvents(), Events(static_cast<std::size_t>(checks), {"x", "y"}));
}

}  // namespace
}  // namespace ov
