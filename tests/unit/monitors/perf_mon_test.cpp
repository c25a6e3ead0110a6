#include "monitors/perf_mon.h"

#include <csignal>
#include <cstdio>

#include "support/support.h"

namespace ov {
namespace {

// What a check raises when the script prints this.
std::string CheckWith(PerfMon &monitor, std::string_view output) {
  WritePrintingScript(kPerfScriptPath, output);
  EXPECT_EQ(OutputOf([&] { monitor.Check(); }), (Output{"", ""}));
  return TakeEvents();
}

// What a new monitor that watches the processor alone raises.
std::string RaisedAt(float threshold, std::string_view output) {
  PerfMon monitor(true, false, false, threshold, 0, 0);
  return CheckWith(monitor, output);
}

// --- Readings ----------------------------------------------------------------------------------

class PerfReading : public testing::TestWithParam<TextRow> {};

TEST_P(PerfReading, IsRead) {
  EXPECT_EQ(RaisedAt(-9, GetParam().input), "perf01 " + GetParam().expected + "% > -9.00%|");
}

const TextRow kPerfTextRows[] = {
    {"BlanksAroundKeyAndValueAreDropped", "cpu = 50\n", "50.00"},
    {"WhiteSpaceAroundKeyAndValueIsDropped", "\t cpu\v=\t50 \r\n", "50.00"},
    {"LastLineNeedsNoLineFeed", "mem=1\n\ncpu=50", "50.00"},
    {"KeyInCapitalsIsIgnored", "CPU=50\nCpu=60\n", "0.00"},
    {"OtherKeysAreIgnored", "cpu0=5\nc pu=5\n=5\nmem=5\ndisk=5\n", "0.00"},
    {"LineWithTwoEqualSignsIsIgnored", "cpu=7\ncpu=1=2\ncpu=50=\n=cpu=50\ncpu==50\n", "7.00"},
    {"LineWithoutAnEqualSignIsIgnored", "cpu=7\ncpu\ncpu 50\ncpu:50\n", "7.00"},
    {"LastLineOfAKeyCounts", "cpu=50\ncpu=60\nmem=70\n", "60.00"},
    {"LastLineOfAKeyCountsThoughItIsNoNumber", "cpu=50\ncpu=x\n", "0.00"},
    {"NumberMayHaveAPlusSign", "cpu=+5\n", "5.00"},
    {"NumberMayHaveAMinusSign", "cpu=-5\n", "-5.00"},
    {"NumberMayHaveAnExponent", "cpu=5e-1\n", "0.50"},
    {"NumberMayBeginWithAPoint", "cpu=.5\n", "0.50"},
    {"EmptyTextReadsAsZero", "cpu=\n", "0.00"},
    {"WordReadsAsZero", "cpu=x\n", "0.00"},
    {"DecimalCommaReadsAsZero", "cpu=12,5\n", "0.00"},
    {"PercentSignReadsAsZero", "cpu=50%\n", "0.00"},
    {"TwoNumbersReadAsZero", "cpu=5 0\n", "0.00"},
    {"HexadecimalReadsAsZero", "cpu=0x32\n", "0.00"}};

INSTANTIATE_TEST_SUITE_P(Rows, PerfReading, testing::ValuesIn(kPerfTextRows), OutcomeOf());

// --- Thresholds --------------------------------------------------------------------------------

class PerfCrossing : public testing::TestWithParam<TextRow> {};

TEST_P(PerfCrossing, IsReported) {
  PerfMon monitor(true, true, true, 80, 20, 30);
  std::string events;
  for (const std::string &output : Parts(GetParam().input)) {
    events += CheckWith(monitor, output);
    monitor.Init();  // resets nothing
  }
  EXPECT_EQ(events, GetParam().expected);
}

const TextRow kCrossings[] = {
    {"EachResourceHasItsKeyItsEventAndItsThreshold", "disk=81\nmem=40.25\ncpu=82.5\n",
     "perf01 82.50% > 80.00%|perf02 40.25% > 20.00%|perf03 81.00% > 30.00%|"},
    {"EventIsRaisedOncePerCrossing", "cpu=79.9|cpu=80|cpu=85|cpu=90|cpu=79|cpu=81",
     "perf01 80.00% > 80.00%|perf01 81.00% > 80.00%|"},
    {"ResourcesCrossIndependently", "cpu=90\nmem=10|cpu=10\nmem=90|cpu=90\nmem=90\ndisk=90",
     "perf01 90.00% > 80.00%|perf02 90.00% > 20.00%|"
     "perf01 90.00% > 80.00%|perf03 90.00% > 30.00%|"},
    {"MissingKeyKeepsTheValueOfTheCheckBefore", "cpu=90|mem=10||cpu=91", "perf01 90.00% > 80.00%|"},
    {"NotANumberArmsAgain", "cpu=90|cpu=nan|cpu=90",
     "perf01 90.00% > 80.00%|perf01 90.00% > 80.00%|"},
    {"InfinityReachesEveryThreshold", "cpu=inf", "perf01 inf% > 80.00%|"},
    // No float lies between the second reading and the threshold.
    {"ReadingsAreComparedAsSingleFloats", "cpu=79.9999|cpu=79.999999", "perf01 80.00% > 80.00%|"}};

INSTANTIATE_TEST_SUITE_P(Rows, PerfCrossing, testing::ValuesIn(kCrossings), OutcomeOf());

TEST(PerfMonTest, ScriptIsRunWithoutArgumentsAndAMissingOneKeepsTheValues) {
  PerfMon monitor(true, true, true, 0, 40, 80);
  EXPECT_EQ(OutputOf([&] { monitor.Check(); }), (Output{"", ""}));
  EXPECT_EQ(TakeEvents(), "perf01 0.00% > 0.00%|");  // reached without a script
  EXPECT_EQ(RaisedAt(0, "cpu=nan\n"), "");
  WriteScript(kPerfScriptPath, "echo mem=4$#");
  monitor.Check();
  EXPECT_EQ(TakeEvents(), "perf02 40.00% > 40.00%|");
  std::remove(kPerfScriptPath);
  monitor.Check();
  EXPECT_EQ(CheckWith(monitor, "mem=41\n"), "") << "the 40 was forgotten";
}

TEST(PerfMonTest, EventsThatAreNotAllowedAreNotRaised) {
  const std::vector<std::string> rest{"perf02 9.00% > 1.00%|perf03 9.00% > 1.00%|",
                                      "perf01 9.00% > 1.00%|perf03 9.00% > 1.00%|",
                                      "perf01 9.00% > 1.00%|perf02 9.00% > 1.00%|"};
  for (std::size_t denied = 0; denied < 3; ++denied) {
    PerfMon monitor(denied != 0, denied != 1, denied != 2, 1, 1, 1);
    EXPECT_EQ(CheckWith(monitor, "cpu=9\nmem=9\ndisk=9\n"), rest[denied]);
  }
}

// --- The length of the values ------------------------------------------------------------------

TEST(PerfMonTest, ValuesOfFifteenCharactersAreRaised) {
  EXPECT_EQ(RaisedAt(90, "cpu=99.994\n"), "perf01 99.99% > 90.00%|");
  EXPECT_EQ(RaisedAt(9, "cpu=100\n"), "perf01 100.00% > 9.00%|");
}

TEST(PerfMonTest, LongerValuesEndTheProcess) {
  PerfMon monitor(true, false, false, 10, 0, 0);
  for (const auto &[reading, printed] :
       {std::pair("100", "100.00"), {"99.996", "100.00"}, {"1e9", "1000000000.00"}}) {
    WritePrintingScript(kPerfScriptPath, "cpu=" + std::string(reading));
    EXPECT_EXIT(monitor.Check(), testing::KilledBySignal(SIGABRT),
                testing::Eq("Performance values do not fit 15 characters: " + std::string(printed) +
                            "% > 10.00%\n"));
  }
}

TEST(PerfMonTest, ReadingThatIsNotAllowedDoesNotEndTheProcess) {
  PerfMon monitor(true, false, true, 80, 10, 80);
  EXPECT_EQ(CheckWith(monitor, "mem=100\n"), "");
}

}  // namespace
}  // namespace ov
