#include "monitors/monitor.h"

#include <cerrno>

#include "support/support.h"

namespace ov {
namespace {

using std::chrono::milliseconds;

// Shows what is done with it.
class ProbeMonitor final : public Monitor {
 public:
  explicit ProbeMonitor(std::int32_t period = 77, const char *name = "Probe Monitor")
      : Monitor(QString::fromUtf8(name), std::chrono::seconds(period)) {}
  ~ProbeMonitor() override { StopIfRunning(); }

  using Monitor::RaiseEvent;

  void Init() override {
    EXPECT_EQ(checks, 0) << "Init comes first";
    ++inits;
    onInit();
  }
  void Check() override {
    ++checks;
    onCheck();
  }
  void Reserved() override { ADD_FAILURE() << "is never called"; }

  std::atomic<int> inits{0};
  std::atomic<int> checks{0};
  // What to do besides counting, on the monitor's thread. Set before the start.
  std::function<void()> onInit = [] {};
  std::function<void()> onCheck = [] {};
};

const Output kStarted{"Starting monitor: Probe Monitor\n", ""};
const Output kStopped{"Stopping monitor: Probe Monitor\n", ""};
const Output kRunsAlready{"Probe Monitor is already running\n", ""};
const Output kDoesNotRun{"Probe Monitor is not running\n", ""};
const Output kStartFailed{kStarted.out,
                          "Error starting monitor: Probe Monitor\n"
                          "pthread_create: Resource temporarily unavailable\n"};

Output Start(ProbeMonitor &monitor) {
  return OutputOf([&] { monitor.Start(); });
}

Output Stop(ProbeMonitor &monitor) {
  return OutputOf([&] { monitor.Stop(); });
}

bool HasChecked(const ProbeMonitor &monitor, int times = 1) {
  return Eventually([&] { return monitor.checks >= times; });
}

// The pauses between two checks are short, unless a test says otherwise.
class MonitorTest : public testing::Test {
 protected:
  MonitorTest() { TakeSleeps(); }
  ~MonitorTest() override {
    EXPECT_TRUE(Eventually([this] { return CountThreads() == threads_; })) << "threads are left";
  }

  const std::size_t threads_ = CountThreads();
  const Temporarily shortSleeps_{g_sleepsAreShort};
};

TEST_F(MonitorTest, StartAndStopPrintTheNameInUtf8) {
  ProbeMonitor monitor(1, "Gerätewächter €");
  EXPECT_EQ(Start(monitor), (Output{"Starting monitor: Gerätewächter €\n", ""}));
  EXPECT_EQ(Stop(monitor), (Output{"Stopping monitor: Gerätewächter €\n", ""}));
}

TEST_F(MonitorTest, SecondStartOnlyPrintsThatItRunsAlready) {
  ProbeMonitor monitor;
  Start(monitor);
  EXPECT_EQ(Start(monitor), kRunsAlready);
  ASSERT_TRUE(HasChecked(monitor, 3));
  EXPECT_TRUE(Eventually([&] { return CountThreads() == threads_ + 1; }));
  EXPECT_EQ(monitor.inits, 1);
}

TEST_F(MonitorTest, StopOfAMonitorThatDoesNotRunOnlyPrintsThatAndItStartsAgainWithInit) {
  ProbeMonitor monitor;
  EXPECT_EQ(Stop(monitor), kDoesNotRun);
  Start(monitor);
  EXPECT_EQ(Stop(monitor), kStopped);
  EXPECT_EQ(Stop(monitor), kDoesNotRun);
  monitor.checks = 0;
  EXPECT_EQ(Start(monitor), kStarted);
  EXPECT_TRUE(HasChecked(monitor, 2));
  EXPECT_EQ(monitor.inits, 2);
}

TEST_F(MonitorTest, DestructionStopsARunningMonitorAndNoOther) {
  EXPECT_EQ(OutputOf([] { ProbeMonitor().Start(); }), (Output{kStarted.out + kStopped.out, ""}));
  EXPECT_EQ(OutputOf([] { const ProbeMonitor monitor; }), (Output{"", ""}));
}

TEST_F(MonitorTest, InitAndChecksRunOnTheThreadOfTheMonitor) {
  std::vector<std::thread::id> threads;
  ProbeMonitor monitor;
  monitor.onInit = monitor.onCheck = [&] { threads.push_back(std::this_thread::get_id()); };
  Start(monitor);
  ASSERT_TRUE(HasChecked(monitor, 5));
  Stop(monitor);
  EXPECT_NE(threads[0], std::this_thread::get_id());
  EXPECT_EQ(threads, std::vector(threads.size(), threads[0]));
}

TEST_F(MonitorTest, FirstCheckIsMadeBeforeTheFirstPauseWhichIsThePeriod) {
  const Temporarily endlessSleeps(g_sleepsLast);
  ProbeMonitor monitor;
  Start(monitor);
  EXPECT_TRUE(HasChecked(monitor));
  g_sleepsLast = 0;
  EXPECT_TRUE(HasChecked(monitor, 5));
  Stop(monitor);
  EXPECT_EQ(TakeSleeps(), std::vector(static_cast<std::size_t>(monitor.checks), 77U));
}

std::function<void()> UntilStopIsRequested() {
  return [before = g_threadJoins.load()] {
    EXPECT_TRUE(Eventually([&] { return g_threadJoins > before; }));
    std::puts("thread goes on");
  };
}

TEST_F(MonitorTest, StopDuringInitGivesNoCheckAndNoPause) {
  ProbeMonitor monitor;
  monitor.onInit = UntilStopIsRequested();
  Start(monitor);
  EXPECT_EQ(Stop(monitor).out, kStopped.out + "thread goes on\n");
  EXPECT_EQ(monitor.checks, 0);
  EXPECT_TRUE(TakeSleeps().empty());
}

TEST_F(MonitorTest, StopDuringACheckWaitsForItsEndAndForThePeriod) {
  ProbeMonitor monitor;
  monitor.onCheck = UntilStopIsRequested();
  Start(monitor);
  ASSERT_TRUE(HasChecked(monitor));
  EXPECT_EQ(Stop(monitor).out, kStopped.out + "thread goes on\n");
  EXPECT_EQ(monitor.checks, 1);
  EXPECT_EQ(TakeSleeps(), std::vector<unsigned>{77});
}

TEST_F(MonitorTest, StopDuringASleepWaitsForItsEndAndGivesNoFurtherCheck) {
  g_sleepsAreShort = 0;
  ProbeMonitor monitor(2);
  const auto time = TimeOf([&] {
    Start(monitor);
    ASSERT_TRUE(HasChecked(monitor));
    Stop(monitor);
  });
  EXPECT_GE(time, std::chrono::seconds(2));
  EXPECT_EQ(monitor.checks, 1);
}

// Without a pause between the two, and with a thread that starts late.
TEST_F(MonitorTest, StopRightAfterTheStartIsNotLost) {
  for (int round = 0; round < 510; ++round) {
    g_threadsStartLate = round < 10 ? 1 : 0;
    ProbeMonitor monitor;
    Start(monitor);
    EXPECT_EQ(Stop(monitor), kStopped);
  }
}

// --- Failures ----------------------------------------------------------------------------------

TEST_F(MonitorTest, FailedStartIsReportedAndStillAnnouncedAndMayBeTriedAgain) {
  ProbeMonitor monitor;
  {
    const Temporarily failing(g_threadStartError, EAGAIN);
    errno = EIO;  // of no call of the start
    EXPECT_EQ(Start(monitor), kStartFailed);
    EXPECT_EQ(OutputOf([] { ProbeMonitor().Start(); }), kStartFailed);
  }
  EXPECT_EQ(Stop(monitor), kDoesNotRun);
  EXPECT_EQ(monitor.inits, 0);
  EXPECT_EQ(Start(monitor), kStarted);
  EXPECT_TRUE(HasChecked(monitor));
}

TEST_F(MonitorTest, FailedJoinIsReportedOnceAndTheThreadIsStillWaitedFor) {
  const Temporarily failing(g_threadJoinError, EDEADLK);
  std::atomic<bool> isChecking{false};
  EXPECT_EQ(OutputOf([&] {
              ProbeMonitor monitor;
              monitor.onCheck = [&] {
                isChecking = true;
                std::this_thread::sleep_for(milliseconds{50});
                isChecking = false;
              };
              monitor.Start();
              EXPECT_TRUE(Eventually([&] { return isChecking.load(); }));
              errno = EIO;  // of no call of the stop
              monitor.Stop();
              EXPECT_FALSE(isChecking);
            }),
            (Output{kStarted.out + kStopped.out,
                    "Error stopping monitor: Probe Monitor\n"
                    "pthread_join: Resource deadlock avoided\n"}));
}

// --- Events ------------------------------------------------------------------------------------

TEST_F(MonitorTest, RaisedEventIsQueuedWithItsValuesCutTo127Bytes) {
  ProbeMonitor::RaiseEvent("perf01", "90.00% > 80.00%");
  ProbeMonitor::RaiseEvent("net02");
  ProbeMonitor::RaiseEvent("sys05", QByteArray(128, 'x'));
  EXPECT_EQ(TakeEvents(), "perf01 90.00% > 80.00%|net02 |sys05 " + std::string(127, 'x') + "|");
}

}  // namespace
}  // namespace ov
