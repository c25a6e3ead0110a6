#include "app/command_line.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "support/output.h"

namespace ov {
namespace {

const std::string kUsage =
    "Usage: logger -e EVENT_ID [VALUES]\n"
    "   or: logger -s\n"
    "\n"
    " -s \tStart the event service\n"
    " -e \tSend an event. VALUES is a comma separated list of values.\n";

class CommandLineTest : public testing::Test {
 protected:
  Output Run(std::vector<std::string> arguments) {
    std::vector<char *> argv;
    for (std::string &argument : arguments) {
      argv.push_back(argument.data());
    }
    argv.push_back(nullptr);
    return OutputOf(
        [&] { status_ = RunCommandLine(static_cast<int>(argv.size()) - 1, argv.data()); });
  }

  int status_ = -1;
};

TEST_F(CommandLineTest, WithoutArgumentsTheUsageIsShown) {
  EXPECT_EQ(Run({"logger"}), (Output{"", kUsage}));
  EXPECT_EQ(status_, 1);
}

TEST_F(CommandLineTest, UsageNamesTheProgramAsItWasCalled) {
  EXPECT_EQ(Run({"./a b"}).err.substr(0, 36), "Usage: ./a b -e EVENT_ID [VALUES]\n  ");
}

TEST_F(CommandLineTest, UsageIsShownWithoutEvenAName) {
  EXPECT_EQ(Run({}).err.substr(0, 31), "Usage:  -e EVENT_ID [VALUES]\n  ");
  EXPECT_EQ(status_, 1);
}

class WrongCountTest : public CommandLineTest,
                       public testing::WithParamInterface<std::vector<std::string>> {};

TEST_P(WrongCountTest, IsReportedAsInvalidParameters) {
  EXPECT_EQ(Run(GetParam()), (Output{"", "Invalid parameters\n" + kUsage}));
  EXPECT_EQ(status_, 1);
}

INSTANTIATE_TEST_SUITE_P(Arguments, WrongCountTest,
                         testing::Values(std::vector<std::string>{"logger", "-s", "x"},
                                         std::vector<std::string>{"logger", "-s", "-e", "sys05"},
                                         std::vector<std::string>{"logger", "-s", ""},
                                         std::vector<std::string>{"logger", "-e"},
                                         std::vector<std::string>{"logger", "-e", "sys05", "a",
                                                                  "b"}));

class UnknownOptionTest : public CommandLineTest,
                          public testing::WithParamInterface<std::string> {};

TEST_P(UnknownOptionTest, IsReportedByItsName) {
  EXPECT_EQ(Run({"logger", GetParam()}),
            (Output{"", "Unknown option: " + GetParam() + "\n" + kUsage}));
  EXPECT_EQ(status_, 1);
}

INSTANTIATE_TEST_SUITE_P(Options, UnknownOptionTest,
                         testing::Values("-x", "-sx", "-ex", "s", "-", "", "-S", "--s", "%s"));

}  // namespace
}  // namespace ov
