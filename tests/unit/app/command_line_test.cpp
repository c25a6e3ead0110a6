#include "app/command_line.h"

#include "support/support.h"

namespace ov {
namespace {

const std::string kUsage =
    "Usage: logger -e EVENT_ID [VALUES]\n"
    "   or: logger -s\n"
    "\n"
    " -s \tStart the event service\n"
    " -e \tSend an event. VALUES is a comma separated list of values.\n";

Output RunWith(std::vector<std::string> arguments) {
  std::vector<char *> argv;
  for (std::string &argument : arguments) {
    argv.push_back(argument.data());
  }
  argv.push_back(nullptr);
  return OutputOf(
      [&] { EXPECT_EQ(RunCommandLine(static_cast<int>(argv.size()) - 1, argv.data()), 1); });
}

struct UsageRow : Row {
  std::vector<std::string> arguments;
  std::string complaint;
};

class CommandLine : public testing::TestWithParam<UsageRow> {};

TEST_P(CommandLine, FailsWithTheUsage) {
  std::vector<std::string> arguments = GetParam().arguments;
  arguments.insert(arguments.begin(), "logger");
  EXPECT_EQ(RunWith(arguments), (Output{"", GetParam().complaint + kUsage}));
}

const std::string kInvalid = "Invalid parameters\n";

const UsageRow kCommandLineRows[] = {
    {"NoArgumentsShowTheUsageAlone", {}, ""},
    {"ServiceOptionTakesNoArgument", {"-s", "x"}, kInvalid},
    {"ServiceOptionTakesNoEmptyArgument", {"-s", ""}, kInvalid},
    {"ServiceOptionIsLookedAtFirst", {"-s", "-e", "sys05"}, kInvalid},
    {"EventOptionNeedsAnIdentifier", {"-e"}, kInvalid},
    {"EventOptionTakesOneListOfValues", {"-e", "sys05", "a", "b"}, kInvalid},
    {"OtherOptionIsUnknown", {"-x"}, "Unknown option: -x\n"},
    {"OptionIsComparedWhole", {"-sx"}, "Unknown option: -sx\n"},
    {"BeginningOfAnOptionIsUnknown", {"-"}, "Unknown option: -\n"},
    {"OptionIsCaseSensitive", {"-E", "x"}, "Unknown option: -E\n"},
    {"EmptyOptionIsUnknown", {""}, "Unknown option: \n"},
    {"OptionIsPrintedAsItIs", {"%s"}, "Unknown option: %s\n"}};

INSTANTIATE_TEST_SUITE_P(Rows, CommandLine, testing::ValuesIn(kCommandLineRows), OutcomeOf());

TEST(CommandLineTest, UsageNamesTheProgramAsItWasCalled) {
  EXPECT_EQ(RunWith({"./a b"}).err.substr(0, 36), "Usage: ./a b -e EVENT_ID [VALUES]\n  ");
  EXPECT_EQ(RunWith({}).err.substr(0, 31), "Usage:  -e EVENT_ID [VALUES]\n  ");
}

}  // namespace
}  // namespace ov
