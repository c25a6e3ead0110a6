// Monitors whose thread cannot be started or joined, or starts late.
#include <gtest/gtest.h>

#include <atomic>
#include <cerrno>
#include <chrono>
#include <thread>

#include "support/output.h"
#include "support/polling.h"
#include "support/probe_monitor.h"
#include "support/wrapped_calls.h"

namespace ov {
namespace {

const Output kStartFailure{"Starting monitor: Probe Monitor\n",
                           "Error starting monitor: Probe Monitor\n"
                           "pthread_create: Resource temporarily unavailable\n"};

TEST(MonitorFaultsTest, FailedStartIsReportedAndStillAnnounced) {
  const FailingThreadStarts failing(EAGAIN);
  ProbeMonitor monitor;
  errno = EIO;  // of no call of the start
  EXPECT_EQ(OutputOf([&] { monitor.Start(); }), kStartFailure);
  EXPECT_FALSE(monitor.IsRunning());
}

TEST(MonitorFaultsTest, NameInAFailureIsPrintedInUtf8) {
  const FailingThreadStarts failing(EPERM);
  ProbeMonitor monitor(0, "Wächter");
  EXPECT_EQ(OutputOf([&] { monitor.Start(); }).err,
            "Error starting monitor: Wächter\npthread_create: Operation not permitted\n");
}

TEST(MonitorFaultsTest, MonitorThatCouldNotStartDoesNothing) {
  const FailingThreadStarts failing(EAGAIN);
  ProbeMonitor monitor;
  OutputOf([&] { monitor.Start(); });
  EXPECT_EQ(OutputOf([&] { monitor.Stop(); }), (Output{"Probe Monitor is not running\n", ""}));
  EXPECT_EQ(monitor.inits, 0);
}

TEST(MonitorFaultsTest, MonitorThatCouldNotStartIsDestroyedSilently) {
  const FailingThreadStarts failing(EAGAIN);
  EXPECT_EQ(OutputOf([] { ProbeMonitor().Start(); }), kStartFailure);
}

TEST(MonitorFaultsTest, MonitorThatCouldNotStartMayTryAgain) {
  ProbeMonitor monitor;
  {
    const FailingThreadStarts failing(EAGAIN);
    EXPECT_EQ(OutputOf([&] { monitor.Start(); }), kStartFailure);
  }
  EXPECT_EQ(OutputOf([&] { monitor.Start(); }), (Output{"Starting monitor: Probe Monitor\n", ""}));
  EXPECT_TRUE(Eventually([&] { return monitor.checks > 0; }));
}

TEST(MonitorFaultsTest, FailedJoinIsReportedAndTheMonitorCountsAsStopped) {
  const FailingJoins failing(EDEADLK);
  ProbeMonitor monitor;
  monitor.Start();
  errno = EIO;  // of no call of the stop
  EXPECT_EQ(OutputOf([&] { monitor.Stop(); }),
            (Output{"Stopping monitor: Probe Monitor\n",
                    "Error stopping monitor: Probe Monitor\n"
                    "pthread_join: Resource deadlock avoided\n"}));
  EXPECT_FALSE(monitor.IsRunning());
}

TEST(MonitorFaultsTest, StopWaitsForAThreadThatCannotBeJoined) {
  const FailingJoins failing(EDEADLK);
  std::atomic<bool> checking{false};
  ProbeMonitor monitor;
  monitor.onCheck = [&] {
    checking = true;
    std::this_thread::sleep_for(std::chrono::milliseconds{50});
    checking = false;
  };
  monitor.Start();
  ASSERT_TRUE(Eventually([&] { return checking.load(); }));
  OutputOf([&] { monitor.Stop(); });
  EXPECT_FALSE(checking);
}

TEST(MonitorFaultsTest, FailedJoinOfADestructionIsReportedOnce) {
  const FailingJoins failing(EINVAL);
  EXPECT_EQ(OutputOf([] { ProbeMonitor().Start(); }),
            (Output{"Starting monitor: Probe Monitor\nStopping monitor: Probe Monitor\n",
                    "Error stopping monitor: Probe Monitor\npthread_join: Invalid argument\n"}));
}

// A request that came before the thread has cleared the last one would be lost, and the join would
// never return.
TEST(MonitorFaultsTest, StopRightAfterTheStartOfALateThreadIsNotLost) {
  const LateThreads lateThreads;
  for (int round = 0; round < 20; ++round) {
    ProbeMonitor monitor;
    monitor.SetStopRequest(1);
    monitor.Start();
    EXPECT_EQ(monitor.StopRequest(), 0);
    monitor.Stop();
    EXPECT_FALSE(monitor.IsRunning());
  }
}

TEST(MonitorFaultsTest, PeriodIsWhatIsSleptForAfterEachCheck) {
  TakeSleeps();
  ProbeMonitor monitor(77);
  monitor.Start();
  ASSERT_TRUE(Eventually([&] { return monitor.checks >= 5; }));
  monitor.Stop();
  const std::vector<Sleep> sleeps = TakeSleeps();
  EXPECT_EQ(sleeps.size(), static_cast<std::size_t>(monitor.checks));
  for (const Sleep &sleep : sleeps) {
    EXPECT_EQ(sleep.seconds, 77U);
  }
}

}  // namespace
}  // namespace ov
