// Monitors that end at every moment of their lives. Worth most in a build with a sanitizer.
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <functional>
#include <memory>
#include <random>
#include <string>
#include <thread>

#include "monitors/agent_conn_mon.h"
#include "monitors/perf_mon.h"
#include "monitors/usb_dev_mon.h"
#include "monitors/vmw_signin_mon.h"
#include "support/descriptors.h"
#include "support/events.h"
#include "support/output.h"
#include "support/polling.h"
#include "support/probe_monitor.h"
#include "support/steps.h"
#include "support/threads.h"
#include "support/wrapped_calls.h"

namespace ov {
namespace {

constexpr int kRounds = 250;  // of each of four monitors

struct MonitorClass {
  std::string name;
  std::function<std::unique_ptr<Monitor>()> make;
};

// So that a failure is told by the name.
void PrintTo(const MonitorClass &monitorClass, std::ostream *stream) {
  *stream << monitorClass.name;
}

const std::array<MonitorClass, 4> kClasses{{
    {"USB Device Monitor", [] { return std::make_unique<UsbDevMon>(true, true, true); }},
    {"Omnissa Signin Monitor", [] { return std::make_unique<VmwSigninMon>(true, true); }},
    {"Secure Connection Monitor", [] { return std::make_unique<AgentConnMon>(true, true); }},
    {"Performance Monitor",
     [] { return std::make_unique<PerfMon>(true, true, true, 50.0F, 50.0F, 50.0F); }},
}};

class MonitorLifetimeTest : public testing::TestWithParam<MonitorClass> {
 protected:
  // Waits until the started monitor is where this round is to end it.
  void AwaitMoment(int round) {
    switch (round % 5) {
      case 0:  // at once
        break;
      case 1:  // in Init if that runs a script, or else in the first check
        EXPECT_TRUE(steps_.Await(1));
        break;
      case 2:  // further on
        EXPECT_TRUE(steps_.Await(2));
        break;
      case 3:  // in a sleep
        EXPECT_TRUE(Eventually([] { return !TakeSleeps().empty(); }));
        break;
      default:  // anywhere
        std::this_thread::sleep_for(std::chrono::microseconds(random_() % 5000));
    }
  }

  Steps steps_;

 private:
  std::mt19937 random_{1};  // the same in every run
};

TEST_P(MonitorLifetimeTest, MonitorMayBeDestroyedAtAnyMoment) {
  const std::string &name = GetParam().name;
  const Output expected{"Starting monitor: " + name + "\nStopping monitor: " + name + "\n", ""};
  const std::size_t descriptors = CountOpenDescriptors();
  for (int round = 0; round < kRounds; ++round) {
    steps_.Forget();
    TakeSleeps();
    ASSERT_EQ(OutputOf([&] {
                std::unique_ptr<Monitor> monitor = GetParam().make();
                monitor->Start();
                AwaitMoment(round);
                monitor.reset();
              }),
              expected);
  }
  EXPECT_EQ(CountOpenDescriptors(), descriptors);
  EXPECT_FALSE(TakeEvents().empty());
}

TEST_P(MonitorLifetimeTest, PeriodIsSleptForAfterEachCheck) {
  const std::unique_ptr<Monitor> monitor = GetParam().make();
  monitor->Start();
  std::vector<Sleep> sleeps;
  EXPECT_TRUE(Eventually([&] { return !(sleeps = TakeSleeps()).empty(); }));
  EXPECT_EQ(sleeps[0].seconds, static_cast<unsigned>(monitor->Period()));
}

INSTANTIATE_TEST_SUITE_P(Classes, MonitorLifetimeTest, testing::ValuesIn(kClasses),
                         [](const auto &instance) {
                           std::string name = instance.param.name;
                           name.erase(std::remove(name.begin(), name.end(), ' '), name.end());
                           return name;
                         });

TEST(MonitorLifetimesTest, ThousandStopsRightAfterTheStartAreNotLost) {
  ProbeMonitor monitor;
  OutputOf([&] {
    for (int round = 0; round < 1000; ++round) {
      monitor.Start();
      monitor.Stop();
      ASSERT_FALSE(monitor.IsRunning());
    }
  });
  EXPECT_EQ(monitor.inits, 1000);
}

TEST(MonitorLifetimesTest, ThousandMonitorsMayBeDestroyedRightAfterTheStart) {
  const std::size_t before = CountThreads();
  std::atomic<int> inits{0};
  OutputOf([&] {
    for (int round = 0; round < 1000; ++round) {
      ProbeMonitor monitor;
      monitor.onInit = [&] { ++inits; };
      monitor.Start();
    }
  });
  EXPECT_EQ(inits, 1000);
  EXPECT_TRUE(Eventually([&] { return CountThreads() == before; }));
}

// Beside one another, as a run cycle has them.
TEST(MonitorLifetimesTest, AllFourMayRunAndEndAtOnce) {
  Steps steps;
  OutputOf([&] {
    for (int round = 0; round < 50; ++round) {
      steps.Forget();
      std::array<std::unique_ptr<Monitor>, kClasses.size()> monitors;
      for (std::size_t index = 0; index < kClasses.size(); ++index) {
        monitors[index] = kClasses[index].make();
        monitors[index]->Start();
      }
      EXPECT_TRUE(steps.Await(round % 8));
    }
  });
  EXPECT_FALSE(TakeEvents().empty());
}

}  // namespace
}  // namespace ov
