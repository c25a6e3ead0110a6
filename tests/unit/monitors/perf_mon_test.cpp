#include "monitors/perf_mon.h"

#include <csignal>
#include <cstdio>

#include "support/support.h"

namespace ov {
namespace {

// What a check raises when the script prints this.
Events CheckWith(PerfMon &monitor, std::string_view output) {
  WritePrintingScript(kPerfScriptPath, output);
  EXPECT_EQ(OutputOf([&] { monitor.Check(); }), (Output{"", ""}));
  return TakeEvents();
}

// What a new monitor that watches the processor alone raises.
Events RaisedAt(float threshold, std::string_view output) {
  PerfMon monitor(true, false, false, threshold, 0, 0);
  return CheckWith(monitor, output);
}

// --- Readings ----------------------------------------------------------------------------------

struct ReadingRow : Row {
  std::string output;
  std::string value;
};

class PerfReading : public testing::TestWithParam<ReadingRow> {};

TEST_P(PerfReading, IsRead) {
  EXPECT_EQ(RaisedAt(-9, GetParam().output), (Events{{"perf01", GetParam().value + "% > -9.00%"}}));
}

const ReadingRow kPerfReadingRows[] = {
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

INSTANTIATE_TEST_SUITE_P(Rows, PerfReading, testing::ValuesIn(kPerfReadingRows),
                         OutcomeOf<ReadingRow>);

TEST(PerfMonTest, ScriptIsRunWithoutArguments) {
  PerfMon monitor(true, false, false, 0, 0, 0);
  WriteScript(kPerfScriptPath, "echo cpu=4$#");
  monitor.Check();
  EXPECT_EQ(TakeEvents(), (Events{{"perf01", "40.00% > 0.00%"}}));
}

// --- Thresholds --------------------------------------------------------------------------------

struct CrossingRow : Row {
  std::vector<std::string> outputs;  // of one check each
  Events events;
};

class PerfCrossing : public testing::TestWithParam<CrossingRow> {};

TEST_P(PerfCrossing, IsReported) {
  PerfMon monitor(true, true, true, 80, 20, 30);
  Events events;
  for (const std::string &output : GetParam().outputs) {
    for (const auto &event : CheckWith(monitor, output)) {
      events.push_back(event);
    }
    monitor.Init();  // resets nothing
  }
  EXPECT_EQ(events, GetParam().events);
}

const CrossingRow kPerfCrossingRows[] = {
    {"EachResourceHasItsKeyItsEventAndItsThreshold",
     {"disk=81\nmem=40.25\ncpu=82.5\n"},
     {{"perf01", "82.50% > 80.00%"}, {"perf02", "40.25% > 20.00%"}, {"perf03", "81.00% > 30.00%"}}},
    {"EventIsRaisedOncePerCrossing",
     {"cpu=79.9", "cpu=80", "cpu=85", "cpu=90", "cpu=79", "cpu=81"},
     {{"perf01", "80.00% > 80.00%"}, {"perf01", "81.00% > 80.00%"}}},
    {"ResourcesCrossIndependently",
     {"cpu=90\nmem=10", "cpu=10\nmem=90", "cpu=90\nmem=90\ndisk=90"},
     {{"perf01", "90.00% > 80.00%"},
      {"perf02", "90.00% > 20.00%"},
      {"perf01", "90.00% > 80.00%"},
      {"perf03", "90.00% > 30.00%"}}},
    {"MissingKeyKeepsTheValueOfTheCheckBefore",
     {"cpu=90", "mem=10", "", "cpu=91"},
     {{"perf01", "90.00% > 80.00%"}}},
    {"NotANumberArmsAgain",
     {"cpu=90", "cpu=nan", "cpu=90"},
     {{"perf01", "90.00% > 80.00%"}, {"perf01", "90.00% > 80.00%"}}},
    {"InfinityReachesEveryThreshold", {"cpu=inf"}, {{"perf01", "inf% > 80.00%"}}},
    // No float lies between this reading and the threshold.
    {"ReadingsAreComparedAsSingleFloats",
     {"cpu=79.9999", "cpu=79.999999"},
     {{"perf01", "80.00% > 80.00%"}}}};

INSTANTIATE_TEST_SUITE_P(Rows, PerfCrossing, testing::ValuesIn(kPerfCrossingRows),
                         OutcomeOf<CrossingRow>);

TEST(PerfMonTest, ThresholdOfZeroIsReachedWithoutAScriptAndNotByNotANumber) {
  std::remove(kPerfScriptPath);
  PerfMon monitor(true, true, true, 0, 0, 0);
  EXPECT_EQ(OutputOf([&] { monitor.Check(); }), (Output{"", ""}));
  EXPECT_EQ(TakeEvents(), (Events{{"perf01", "0.00% > 0.00%"},
                                  {"perf02", "0.00% > 0.00%"},
                                  {"perf03", "0.00% > 0.00%"}}));
  EXPECT_EQ(RaisedAt(0, "cpu=nan\n"), Events());
}

TEST(PerfMonTest, MissingScriptKeepsTheValuesOfTheCheckBefore) {
  PerfMon monitor(true, true, true, 80, 80, 80);
  CheckWith(monitor, "cpu=90\n");
  std::remove(kPerfScriptPath);
  monitor.Check();
  EXPECT_EQ(CheckWith(monitor, "cpu=91\n"), Events()) << "the 90 was forgotten";
}

TEST(PerfMonTest, EventsThatAreNotAllowedAreNotRaised) {
  for (int denied = 0; denied < 3; ++denied) {
    PerfMon monitor(denied != 0, denied != 1, denied != 2, 9, 9, 9);
    Events expected{
        {"perf01", "90.00% > 9.00%"}, {"perf02", "90.00% > 9.00%"}, {"perf03", "90.00% > 9.00%"}};
    expected.erase(expected.begin() + denied);
    EXPECT_EQ(CheckWith(monitor, "cpu=90\nmem=90\ndisk=90\n"), expected);
  }
}

// --- The length of the values ------------------------------------------------------------------

TEST(PerfMonTest, ValuesOfFifteenCharactersAreRaised) {
  EXPECT_EQ(RaisedAt(90, "cpu=99.994\n"), (Events{{"perf01", "99.99% > 90.00%"}}));
  EXPECT_EQ(RaisedAt(9, "cpu=100\n"), (Events{{"perf01", "100.00% > 9.00%"}}));
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
  EXPECT_EQ(CheckWith(monitor, "mem=100\n"), Events());
}

}  // namespace
}  // namespace ov
