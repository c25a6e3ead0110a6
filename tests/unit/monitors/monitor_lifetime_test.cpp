// The four monitors as threads.

#include <memory>
#include <random>

#include "monitors/agent_conn_mon.h"
#include "monitors/perf_mon.h"
#include "monitors/usb_dev_mon.h"
#include "monitors/vmw_signin_mon.h"
#include "support/support.h"

namespace ov {
namespace {

struct MonitorRow : Row {
  std::string name;
  unsigned period;
  std::function<std::unique_ptr<Monitor>()> make;
  std::string firstEvents;
};

template <typename Kind, typename... Arguments>
auto Making(Arguments... arguments) {
  return [=]() -> std::unique_ptr<Monitor> { return std::make_unique<Kind>(arguments...); };
}

const MonitorRow kMonitors[] = {
    {"Usb", "USB Device Monitor", 3, Making<UsbDevMon>(true, true, true), "sys05 usb1|"},
    {"Signin", "Omnissa Signin Monitor", 3, Making<VmwSigninMon>(true, true), "sec03 alice/x|"},
    {"Agent", "Secure Connection Monitor", 5, Making<AgentConnMon>(true, true), "net03 DOWN|"},
    {"Perf", "Performance Monitor", 5, Making<PerfMon>(true, true, true, 9.0F, 60.0F, 9.0F),
     "perf02 60.00% > 60.00%|"}};

class MonitorLifetime : public testing::TestWithParam<MonitorRow> {
 protected:
  MonitorLifetime() {
    WriteScript(kUsbScriptPath, "echo usb1");
    WriteScript(kPerfScriptPath, "echo mem=60");
    WriteScript(kSigninScriptPath, "[ $1 = error ] || echo x:alice:x:y");
    PutFirstInPath("/tmp/bin");
    WriteScript("/tmp/bin/pgrep", "echo 1234");
    WriteFile(kAgentStatusPath, "\n\nDOWN\n");
    TakeSleeps();
  }

  const Temporarily shortSleeps_{g_sleepsAreShort};
};

TEST_P(MonitorLifetime, StartedMonitorRaisesItsEventsAndPausesForItsPeriod) {
  const std::unique_ptr<Monitor> monitor = GetParam().make();
  EXPECT_EQ(OutputOf([&] { monitor->Start(); }).out, "Starting monitor: " + GetParam().name + "\n");
  std::vector<unsigned> sleeps;
  EXPECT_TRUE(Eventually([&] { return !(sleeps = TakeSleeps()).empty(); }));
  EXPECT_EQ(sleeps[0], GetParam().period);
  EXPECT_EQ(TakeEvents(), GetParam().firstEvents);
}

// Worth most in a build with a sanitizer.
TEST_P(MonitorLifetime, MonitorMayBeDestroyedAtAnyMoment) {
  constexpr int kRounds = 20;
  std::mt19937 random(1);  // the same in every run
  const std::size_t descriptors = CountOpenDescriptors();
  for (int round = 0; round < kRounds; ++round) {
    std::unique_ptr<Monitor> monitor = GetParam().make();
    monitor->Start();
    std::this_thread::sleep_for(std::chrono::microseconds(random() % 5000));
    monitor.reset();
  }
  EXPECT_EQ(CountOpenDescriptors(), descriptors);
  EXPECT_FALSE(TakeEvents().empty());
}

INSTANTIATE_TEST_SUITE_P(Classes, MonitorLifetime, testing::ValuesIn(kMonitors), OutcomeOf());

}  // namespace
}  // namespace ov
