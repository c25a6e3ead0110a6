#include "monitors/script_runner.h"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <thread>
#include <vector>

#include "support/descriptors.h"
#include "support/files.h"
#include "support/output.h"
#include "support/polling.h"
#include "support/programs.h"

namespace ov {
namespace {

using std::chrono::milliseconds;

constexpr char kScript[] = "/tmp/script.sh";
constexpr milliseconds kNotLong{10'000};

std::string OutputFrom(const std::string &program, const QStringList &arguments = {}) {
  return RunScript(QString::fromStdString(program), arguments).toStdString();
}

std::string ScriptOutput(std::string_view lines, const QStringList &arguments = {}) {
  WriteScript(kScript, lines);
  return OutputFrom(kScript, arguments);
}

std::string ReadBack(std::string_view output) {
  WritePrintingScript(kScript, output);
  return OutputFrom(kScript);
}

// What comes of a program that cannot be run: nothing in its place, and no word about it.
void ExpectNothingOf(const std::string &program) {
  std::string text = "not run";
  EXPECT_EQ(OutputOf([&] { text = OutputFrom(program); }), (Output{"", ""}));
  EXPECT_EQ(text, "");
}

bool HasNoChildren() { return waitpid(-1, nullptr, WNOHANG) == -1 && errno == ECHILD; }

bool ProcessExists(const std::string &id) { return std::filesystem::exists("/proc/" + id); }

TEST(ScriptRunnerTest, OutputIsReturnedWhole) {
  EXPECT_EQ(ScriptOutput("echo one; echo; printf ' two '"), "one\n\n two ");
}

TEST(ScriptRunnerTest, SilentScriptGivesTheEmptyText) { EXPECT_EQ(ScriptOutput("exit 0"), ""); }

TEST(ScriptRunnerTest, ArgumentsArriveAsTheyAre) {
  EXPECT_EQ(ScriptOutput(
                "for word; do echo \"<$word>\"; done",
                {QStringLiteral("a b"), QString(), QStringLiteral("*"), QStringLiteral("$HOME; id"),
                 QStringLiteral("\"q\" 'r' \\"), QStringLiteral("ü"), QStringLiteral("--x=1")}),
            "<a b>\n<>\n<*>\n<$HOME; id>\n<\"q\" 'r' \\>\n<ü>\n<--x=1>\n");
}

TEST(ScriptRunnerTest, NoArgumentIsAddedToNone) { EXPECT_EQ(ScriptOutput("echo $#"), "0\n"); }

TEST(ScriptRunnerTest, PathMayHoldBlanksAndQuotes) {
  const std::string path = "/tmp/a \"b\" $c;d.sh";
  WriteScript(path, "echo run");
  EXPECT_EQ(OutputFrom(path), "run\n");
}

TEST(ScriptRunnerTest, CommandLineIsNoProgram) { ExpectNothingOf("/bin/echo hello"); }

TEST(ScriptRunnerTest, ScriptThatNamesNoInterpreterIsNotRun) {
  WriteScript(kScript, "");
  WriteFile(kScript, "echo run\n");
  ExpectNothingOf(kScript);
}

TEST(ScriptRunnerTest, StandardErrorIsNeitherReturnedNorPassedOn) {
  std::string text;
  EXPECT_EQ(OutputOf([&] { text = ScriptOutput("echo first >&2; echo out; echo last >&2"); }),
            (Output{"", ""}));
  EXPECT_EQ(text, "out\n");
}

TEST(ScriptRunnerTest, ExitStatusDoesNotCount) {
  EXPECT_EQ(ScriptOutput("echo out; exit 7"), "out\n");
}

TEST(ScriptRunnerTest, OutputOfAScriptThatWasKilledIsReturned) {
  EXPECT_EQ(OutputOf([] { EXPECT_EQ(ScriptOutput("echo out; kill -9 $$"), "out\n"); }),
            (Output{"", ""}));
}

TEST(ScriptRunnerTest, MissingProgramGivesNothing) { ExpectNothingOf("/tmp/missing.sh"); }

TEST(ScriptRunnerTest, EmptyPathGivesNothing) { ExpectNothingOf(""); }

TEST(ScriptRunnerTest, FolderGivesNothing) { ExpectNothingOf("/tmp"); }

TEST(ScriptRunnerTest, FileThatIsNotExecutableGivesNothing) {
  WriteFile(kScript, "#!/bin/sh\necho run\n");
  chmod(kScript, 0644);
  ExpectNothingOf(kScript);
}

TEST(ScriptRunnerTest, MissingInterpreterGivesNothing) {
  WriteScript(kScript, "");
  WriteFile(kScript, "#!/tmp/missing\necho run\n");
  ExpectNothingOf(kScript);
}

TEST(ScriptRunnerTest, LinkIsFollowed) {
  WriteScript("/tmp/target.sh", "echo run");
  ASSERT_EQ(symlink("target.sh", kScript), 0);
  EXPECT_EQ(OutputFrom(kScript), "run\n");
}

TEST(ScriptRunnerTest, EndlessChainOfLinksGivesNothing) {
  ASSERT_EQ(symlink("other", kScript), 0);
  ASSERT_EQ(symlink("script.sh", "/tmp/other"), 0);
  ExpectNothingOf(kScript);
}

TEST(ScriptRunnerTest, TextEndsBeforeTheFirstNul) {
  EXPECT_EQ(ReadBack(std::string("one\ntwo\0three\n\0", 15)), "one\ntwo");
  EXPECT_EQ(ReadBack(std::string("\0one\n", 5)), "");
}

TEST(ScriptRunnerTest, OutputIsReadAsUtf8) { EXPECT_EQ(ReadBack("Gerät €\n"), "Gerät €\n"); }

TEST(ScriptRunnerTest, BytesThatAreNoUtf8AreReplaced) {
  EXPECT_EQ(ReadBack("a\xFFz \xE2\x82"), "a\xEF\xBF\xBDz \xEF\xBF\xBD\xEF\xBF\xBD");
}

TEST(ScriptRunnerTest, TenMegabytesAreReadWhole) {
  std::string output;
  while (output.size() < 10'000'000) {
    output += std::to_string(output.size()) + "\n";
  }
  EXPECT_TRUE(ReadBack(output) == output);
}

// Without a writer at its other end, `cat` would end at once.
TEST(ScriptRunnerTest, ScriptHasAnOpenStandardInput) {
  EXPECT_EQ(ScriptOutput("timeout 1 cat; echo $?"), "124\n");
}

TEST(ScriptRunnerTest, ScriptSeesNoDescriptorsButTheStandardOnes) {
  CloseOpenDescriptorsOnExec();
  // The third is that of the listed folder itself.
  EXPECT_EQ(OutputFrom("ls", {QStringLiteral("/proc/self/fd")}), "0\n1\n2\n3\n");
}

TEST(ScriptRunnerTest, BrokenPipeEndsAScriptThoughTheServiceIgnoresIt) {
  std::signal(SIGPIPE, SIG_IGN);
  EXPECT_EQ(ScriptOutput("echo one; kill -PIPE $$; echo two"), "one\n");
}

TEST(ScriptRunnerTest, ScriptThatClosesItsOutputIsWaitedFor) {
  std::string text;
  EXPECT_GE(TimeOf([&] { text = ScriptOutput("echo out; exec >&- 2>&-; exec sleep 1"); }),
            milliseconds{1000});
  EXPECT_EQ(text, "out\n");
}

TEST(ScriptRunnerTest, ProcessThatAScriptLeavesBehindIsNotWaitedFor) {
  std::string text;
  EXPECT_LT(TimeOf([&] { text = ScriptOutput("echo out; sleep 100 &"); }), kNotLong);
  EXPECT_EQ(text, "out\n");
}

// Each waits for the half minute that a script may take.
TEST(ScriptRunnerLongTest, OutputSoFarOfAScriptThatTakesTooLongIsReturned) {
  std::string text;
  const auto run = [&] { text = ScriptOutput("echo one; printf two; sleep 100; echo three"); };
  milliseconds time{};
  EXPECT_EQ(OutputOf([&] { time = TimeOf(run); }), (Output{"", ""}));
  EXPECT_EQ(text, "one\ntwo");
  EXPECT_GE(time, kScriptTimeout);
  EXPECT_LT(time, kScriptTimeout + kNotLong);
}

TEST(ScriptRunnerLongTest, ScriptThatTakesTooLongIsKilledAlsoIfItIgnoresSignals) {
  std::string text;
  const auto run = [&] { text = ScriptOutput("trap '' HUP INT TERM; echo $$; exec sleep 60"); };
  EXPECT_LT(TimeOf(run), kScriptTimeout + kNotLong);
  ASSERT_EQ(text.back(), '\n');
  EXPECT_FALSE(ProcessExists(text.substr(0, text.size() - 1)));
  EXPECT_TRUE(HasNoChildren());
}

TEST(ScriptRunnerLongTest, ScriptThatClosedItsOutputTakesNoLongerThanOthers) {
  std::string text;
  const auto time =
      TimeOf([&] { text = ScriptOutput("echo out; exec >&- 2>&- <&-; exec sleep 100"); });
  EXPECT_EQ(text, "out\n");
  EXPECT_GE(time, kScriptTimeout);
  EXPECT_LT(time, kScriptTimeout + kNotLong);
}

TEST(ScriptRunnerLongTest, ScriptThatNeverStopsPrintingTakesNoLongerThanOthers) {
  std::string text;
  const auto time = TimeOf([&] { text = ScriptOutput("while :; do echo; done"); });
  EXPECT_EQ(text.find_first_not_of('\n'), std::string::npos);
  EXPECT_GE(text.size(), 1000U);
  EXPECT_GE(time, kScriptTimeout);
  EXPECT_LT(time, kScriptTimeout + kNotLong);
}

TEST(ScriptRunnerLongTest, ScriptMayTakeTwentyFiveSeconds) {
  EXPECT_EQ(ScriptOutput("sleep 25; echo out"), "out\n");
}

TEST(ScriptRunnerLongTest, ThousandRunsLeaveNoChildAndNoDescriptor) {
  WriteScript(kScript, "echo out");
  ASSERT_EQ(OutputFrom(kScript), "out\n");  // opens what Qt keeps open
  const std::size_t before = CountOpenDescriptors();
  for (int run = 0; run < 1000; ++run) {
    ASSERT_EQ(OutputFrom(kScript), "out\n");
    ASSERT_EQ(OutputFrom("/tmp/missing.sh"), "");
  }
  EXPECT_TRUE(HasNoChildren());
  EXPECT_EQ(CountOpenDescriptors(), before);
}

TEST(ScriptRunnerTest, ThreadsThatRunScriptsAtOnceGetEachTheirOwnOutput) {
  constexpr int kRuns = 25;
  WriteScript(kScript, "echo \"$1\"");
  std::vector<int> right(4);
  std::vector<std::thread> threads;
  for (std::size_t index = 0; index < right.size(); ++index) {
    threads.emplace_back([&, index] {
      const std::string word = std::to_string(index);
      for (int run = 0; run < kRuns; ++run) {
        right[index] += OutputFrom(kScript, {QString::fromStdString(word)}) == word + "\n" ? 1 : 0;
      }
    });
  }
  for (std::thread &thread : threads) {
    thread.join();
  }
  EXPECT_EQ(right, std::vector<int>(4, kRuns));
}

class ProcessCheckTest : public testing::Test {
 protected:
  // What the check says when `pgrep` is a script of these lines.
  static bool IsRunningFor(std::string_view lines) {
    const FirstInPath folder("/tmp/bin");
    WriteScript("/tmp/bin/pgrep", lines);
    return IsProcessRunning(QStringLiteral("horizon-client"));
  }
};

TEST_F(ProcessCheckTest, NameIsTheOnlyArgument) {
  IsRunningFor("printf '%s,' \"$@\" >/tmp/arguments");
  EXPECT_EQ(OutputFrom("cat", {QStringLiteral("/tmp/arguments")}), "horizon-client,");
}

TEST_F(ProcessCheckTest, AnyOutputMeansRunning) {
  EXPECT_TRUE(IsRunningFor("echo 1234"));
  EXPECT_TRUE(IsRunningFor("echo"));
  EXPECT_TRUE(IsRunningFor("printf ' '"));
}

TEST_F(ProcessCheckTest, OnlyTheOutputCounts) {
  EXPECT_FALSE(IsRunningFor("exit 0"));
  EXPECT_FALSE(IsRunningFor("echo 1234 >&2"));
  EXPECT_TRUE(IsRunningFor("echo 1234; exit 1"));
}

TEST_F(ProcessCheckTest, WithoutPgrepNothingRuns) {
  const IdleProcess process("horizon-client");
  const FirstInPath folder("/tmp/bin");
  setenv("PATH", "/tmp/bin", 1);
  EXPECT_EQ(OutputOf([] { EXPECT_FALSE(IsProcessRunning(QStringLiteral("horizon-client"))); }),
            (Output{"", ""}));
}

TEST_F(ProcessCheckTest, RealProcessIsFoundWhileItRuns) {
  const QString name = QStringLiteral("horizon-client");
  EXPECT_FALSE(IsProcessRunning(name));
  {
    const IdleProcess process("horizon-client");
    EXPECT_TRUE(IsProcessRunning(name));
  }
  EXPECT_FALSE(IsProcessRunning(name));
}

TEST_F(ProcessCheckTest, NameIsAPattern) {
  const IdleProcess process("my-horizon-cl");
  EXPECT_TRUE(IsProcessRunning(QStringLiteral("horizon")));
  EXPECT_TRUE(IsProcessRunning(QStringLiteral("^my.*cl$")));
  EXPECT_FALSE(IsProcessRunning(QStringLiteral("^horizon")));
}

}  // namespace
}  // namespace ov
