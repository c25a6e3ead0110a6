#include "monitors/perf_mon.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <csignal>
#include <cstdio>
#include <string>
#include <string_view>

#include "support/events.h"
#include "support/output.h"
#include "support/polling.h"
#include "support/programs.h"

namespace ov {
namespace {

using testing::Eq;
using testing::KilledBySignal;

class PerfMonTest : public testing::Test {
 protected:
  PerfMonTest() { TakeEvents(); }

  // What a check raises when the script prints this.
  static Events CheckWith(PerfMon &monitor, std::string_view output) {
    WritePrintingScript(kPerfScriptPath, output);
    monitor.Check();
    return TakeEvents();
  }

  // What a new monitor that watches the processor alone raises.
  static Events RaisedAt(float threshold, std::string_view output) {
    PerfMon monitor(true, false, false, threshold, 0, 0);
    return CheckWith(monitor, output);
  }

  // The value that is read for the processor, as two decimals.
  static std::string ValueOf(std::string_view output) {
    const Events events = RaisedAt(-9, output);
    EXPECT_EQ(events.size(), 1U);
    const std::string text = events.empty() ? "" : events[0].second;
    return text.substr(0, text.find('%'));
  }

  static Events Cpu(std::string_view values) { return {{"perf01", std::string(values)}}; }

  const Events kNone;
};

TEST_F(PerfMonTest, HasItsNameAndPeriod) {
  const PerfMon monitor(true, true, true, 0, 0, 0);
  EXPECT_EQ(monitor.Name(), QStringLiteral("Performance Monitor"));
  EXPECT_EQ(monitor.Period(), 5);
}

TEST_F(PerfMonTest, EachResourceHasItsKeyItsEventAndItsThreshold) {
  PerfMon monitor(true, true, true, 10, 20, 30);
  EXPECT_EQ(CheckWith(monitor, "disk=81\nmem=40.25\ncpu=12.5\n"),
            (Events{{"perf01", "12.50% > 10.00%"},
                    {"perf02", "40.25% > 20.00%"},
                    {"perf03", "81.00% > 30.00%"}}));
}

TEST_F(PerfMonTest, ScriptIsRunWithoutArguments) {
  PerfMon monitor(true, false, false, 0, 0, 0);
  WriteScript(kPerfScriptPath, "echo cpu=4$#");
  monitor.Check();
  EXPECT_EQ(TakeEvents(), Cpu("40.00% > 0.00%"));
}

TEST_F(PerfMonTest, WhiteSpaceAroundKeyAndValueIsDropped) {
  EXPECT_EQ(ValueOf("cpu = 50\n"), "50.00");
  EXPECT_EQ(ValueOf("\t cpu\v=\t50 \r\n"), "50.00");
}

TEST_F(PerfMonTest, LastLineNeedsNoLineFeed) { EXPECT_EQ(ValueOf("mem=1\n\ncpu=50"), "50.00"); }

TEST_F(PerfMonTest, KeyInCapitalsIsIgnored) { EXPECT_EQ(ValueOf("CPU=50\nCpu=60\n"), "0.00"); }

TEST_F(PerfMonTest, OtherKeysAreIgnored) {
  EXPECT_EQ(ValueOf("cpu0=50\nc pu=50\n=50\nmem=50\ndisk=50\n"), "0.00");
}

TEST_F(PerfMonTest, LineWithTwoEqualSignsIsIgnored) {
  EXPECT_EQ(ValueOf("cpu=7\ncpu=1=2\ncpu=50=\n=cpu=50\ncpu==50\n"), "7.00");
}

TEST_F(PerfMonTest, LineWithoutAnEqualSignIsIgnored) {
  EXPECT_EQ(ValueOf("cpu=7\ncpu\ncpu 50\ncpu:50\n\n"), "7.00");
}

TEST_F(PerfMonTest, LastLineOfAKeyCounts) {
  EXPECT_EQ(ValueOf("cpu=50\ncpu=60\nmem=70\n"), "60.00");
  EXPECT_EQ(ValueOf("cpu=50\ncpu=x\n"), "0.00");
}

TEST_F(PerfMonTest, NumberMayHaveASignAndAnExponent) {
  EXPECT_EQ(ValueOf("cpu=+5\n"), "5.00");
  EXPECT_EQ(ValueOf("cpu=-5\n"), "-5.00");
  EXPECT_EQ(ValueOf("cpu=5e-1\n"), "0.50");
  EXPECT_EQ(ValueOf("cpu=.5\n"), "0.50");
}

TEST_F(PerfMonTest, TextThatIsNoNumberReadsAsZero) {
  for (const char *text : {"", "x", "12,5", "50%", "5 0", "0x32", "1.2.3", "--5"}) {
    EXPECT_EQ(ValueOf(std::string("cpu=") + text + "\n"), "0.00") << text;
  }
}

TEST_F(PerfMonTest, ReadingsAreComparedAsSingleFloats) {
  // No float lies between this reading and the threshold.
  EXPECT_EQ(RaisedAt(80, "cpu=79.999999\n"), Cpu("80.00% > 80.00%"));
  EXPECT_EQ(RaisedAt(80, "cpu=79.9999\n"), kNone);
}

TEST_F(PerfMonTest, EventIsRaisedOncePerCrossing) {
  PerfMon monitor(true, true, true, 80, 80, 80);
  EXPECT_EQ(CheckWith(monitor, "cpu=79.9\n"), kNone);
  EXPECT_EQ(CheckWith(monitor, "cpu=80\n"), Cpu("80.00% > 80.00%"));
  EXPECT_EQ(CheckWith(monitor, "cpu=85\n"), kNone);
  EXPECT_EQ(CheckWith(monitor, "cpu=90\n"), kNone);
  EXPECT_EQ(CheckWith(monitor, "cpu=79\n"), kNone);
  EXPECT_EQ(CheckWith(monitor, "cpu=81\n"), Cpu("81.00% > 80.00%"));
}

TEST_F(PerfMonTest, ResourcesCrossIndependently) {
  PerfMon monitor(true, true, true, 80, 80, 80);
  EXPECT_EQ(CheckWith(monitor, "cpu=90\nmem=10\n"), Cpu("90.00% > 80.00%"));
  EXPECT_EQ(CheckWith(monitor, "cpu=10\nmem=90\n"), (Events{{"perf02", "90.00% > 80.00%"}}));
  EXPECT_EQ(CheckWith(monitor, "cpu=90\nmem=90\ndisk=90\n"),
            (Events{{"perf01", "90.00% > 80.00%"}, {"perf03", "90.00% > 80.00%"}}));
}

TEST_F(PerfMonTest, ThresholdOfZeroIsReachedWithoutAScript) {
  std::remove(kPerfScriptPath);
  PerfMon monitor(true, true, true, 0, 0, 0);
  monitor.Check();
  EXPECT_EQ(TakeEvents(), (Events{{"perf01", "0.00% > 0.00%"},
                                  {"perf02", "0.00% > 0.00%"},
                                  {"perf03", "0.00% > 0.00%"}}));
}

TEST_F(PerfMonTest, NotANumberRaisesNothingAndArmsAgain) {
  PerfMon monitor(true, false, false, 80, 0, 0);
  EXPECT_EQ(CheckWith(monitor, "cpu=90\n"), Cpu("90.00% > 80.00%"));
  EXPECT_EQ(CheckWith(monitor, "cpu=nan\n"), kNone);
  EXPECT_EQ(CheckWith(monitor, "cpu=90\n"), Cpu("90.00% > 80.00%"));
}

TEST_F(PerfMonTest, NotANumberDoesNotReachAThresholdOfZero) {
  EXPECT_EQ(RaisedAt(0, "cpu=nan\n"), kNone);
}

TEST_F(PerfMonTest, InfinityReachesEveryThreshold) {
  EXPECT_EQ(RaisedAt(80, "cpu=inf\n"), Cpu("inf% > 80.00%"));
}

TEST_F(PerfMonTest, MissingKeyKeepsTheValueOfTheCheckBefore) {
  PerfMon monitor(true, true, true, 80, 80, 80);
  EXPECT_EQ(CheckWith(monitor, "cpu=90\n"), Cpu("90.00% > 80.00%"));
  EXPECT_EQ(CheckWith(monitor, "mem=10\n"), kNone);
  EXPECT_EQ(CheckWith(monitor, "cpu=91\n"), kNone) << "the 90 was forgotten";
}

TEST_F(PerfMonTest, MissingScriptKeepsTheValuesOfTheCheckBefore) {
  PerfMon monitor(true, true, true, 80, 80, 80);
  EXPECT_EQ(CheckWith(monitor, "cpu=90\n"), Cpu("90.00% > 80.00%"));
  std::remove(kPerfScriptPath);
  monitor.Check();
  EXPECT_EQ(CheckWith(monitor, "cpu=91\n"), kNone) << "the 90 was forgotten";
}

TEST_F(PerfMonTest, InitResetsNothing) {
  PerfMon monitor(true, true, true, 80, 80, 80);
  EXPECT_EQ(CheckWith(monitor, "cpu=90\n"), Cpu("90.00% > 80.00%"));
  monitor.Init();
  EXPECT_EQ(CheckWith(monitor, ""), kNone);
}

TEST_F(PerfMonTest, NewMonitorReportsAgain) {
  EXPECT_EQ(RaisedAt(80, "cpu=90\n"), Cpu("90.00% > 80.00%"));
  EXPECT_EQ(RaisedAt(80, "cpu=90\n"), Cpu("90.00% > 80.00%"));
}

TEST_F(PerfMonTest, EventsThatAreNotAllowedAreNotRaised) {
  constexpr char kAllHigh[] = "cpu=90\nmem=90\ndisk=90\n";
  constexpr char kValues[] = "90.00% > 80.00%";
  PerfMon allButCpu(false, true, true, 80, 80, 80);
  EXPECT_EQ(CheckWith(allButCpu, kAllHigh), (Events{{"perf02", kValues}, {"perf03", kValues}}));
  PerfMon allButMem(true, false, true, 80, 80, 80);
  EXPECT_EQ(CheckWith(allButMem, kAllHigh), (Events{{"perf01", kValues}, {"perf03", kValues}}));
  PerfMon allButDisk(true, true, false, 80, 80, 80);
  EXPECT_EQ(CheckWith(allButDisk, kAllHigh), (Events{{"perf01", kValues}, {"perf02", kValues}}));
}

TEST_F(PerfMonTest, NothingIsPrintedForAnEvent) {
  EXPECT_EQ(OutputOf([] { RaisedAt(80, "cpu=90\n"); }), (Output{"", ""}));
}

TEST_F(PerfMonTest, ValuesOfFifteenCharactersAreRaised) {
  EXPECT_EQ(RaisedAt(90, "cpu=99.99\n"), Cpu("99.99% > 90.00%"));
  EXPECT_EQ(RaisedAt(90, "cpu=99.994\n"), Cpu("99.99% > 90.00%"));
  EXPECT_EQ(RaisedAt(9, "cpu=100\n"), Cpu("100.00% > 9.00%"));
}

TEST_F(PerfMonTest, ValuesOfSixteenCharactersEndTheProcess) {
  EXPECT_EXIT(RaisedAt(90, "cpu=100\n"), KilledBySignal(SIGABRT),
              Eq("Performance values do not fit 15 characters: 100.00% > 90.00%\n"));
}

TEST_F(PerfMonTest, ReadingThatRoundsToOneHundredEndsTheProcess) {
  EXPECT_EXIT(RaisedAt(10, "cpu=99.996\n"), KilledBySignal(SIGABRT),
              Eq("Performance values do not fit 15 characters: 100.00% > 10.00%\n"));
}

TEST_F(PerfMonTest, HugeReadingEndsTheProcess) {
  EXPECT_EXIT(RaisedAt(10, "cpu=1e9\n"), KilledBySignal(SIGABRT),
              Eq("Performance values do not fit 15 characters: 1000000000.00% > 10.00%\n"));
}

TEST_F(PerfMonTest, ReadingThatIsNotAllowedDoesNotEndTheProcess) {
  PerfMon monitor(true, false, true, 80, 10, 80);
  EXPECT_EQ(CheckWith(monitor, "mem=100\n"), kNone);
}

TEST_F(PerfMonTest, StartedMonitorChecksAtOnce) {
  WritePrintingScript(kPerfScriptPath, "disk=90\n");
  PerfMon monitor(true, true, true, 80, 80, 80);
  monitor.Start();
  Events events;
  EXPECT_TRUE(Eventually([&] { return !(events = TakeEvents()).empty(); }));
  EXPECT_EQ(events, (Events{{"perf03", "90.00% > 80.00%"}}));
}

}  // namespace
}  // namespace ov
