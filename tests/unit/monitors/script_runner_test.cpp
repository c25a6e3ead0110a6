#include "monitors/script_runner.h"

#include <sys/ptrace.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <cstdlib>

#include "support/support.h"

namespace ov {
namespace {

using std::chrono::milliseconds;

constexpr char kScript[] = "/tmp/script.sh";
constexpr milliseconds kNotLong{10'000};

// What the program returns. It prints nothing on the streams of this process.
std::string OutputFrom(const std::string &program, const QStringList &arguments = {}) {
  std::string text;
  EXPECT_EQ(
      OutputOf([&] { text = RunScript(QString::fromStdString(program), arguments).toStdString(); }),
      (Output{"", ""}));
  return text;
}

std::string ScriptOutput(std::string_view lines, const QStringList &arguments = {}) {
  WriteScript(kScript, lines);
  return OutputFrom(kScript, arguments);
}

bool HasZombies() {
  siginfo_t child{};
  return waitid(P_ALL, 0, &child, WEXITED | WNOHANG | WNOWAIT) == 0 && child.si_pid != 0;
}

// --- Output ------------------------------------------------------------------------------------

class Script : public testing::TestWithParam<TextRow> {};

TEST_P(Script, IsRun) {
  EXPECT_EQ(ScriptOutput(GetParam().input), GetParam().expected);
  EXPECT_FALSE(HasZombies());
}

const TextRow kTextRows[] = {
    {"OutputIsReturnedWhole", "echo one; echo; printf ' two '", "one\n\n two "},
    {"SilentScriptGivesTheEmptyText", "exit 0", ""},
    {"NoArgumentIsAddedToNone", "echo $#", "0\n"},
    {"ExitStatusDoesNotCount", "echo out; exit 7", "out\n"},
    {"OutputOfAKilledScriptIsReturned", "echo out; kill -9 $$", "out\n"},
    {"TextEndsBeforeTheFirstNul", "printf 'one\\ntwo\\0three\\n'", "one\ntwo"},
    {"OutputThatBeginsWithNulIsEmpty", "printf '\\0one\\n'", ""},
    {"OutputIsReadAsUtf8", "echo 'Gerät €'", "Gerät €\n"},
    {"BytesThatAreNoUtf8AreReplaced", "printf 'a\\377z \\342\\202'",
     "a\xEF\xBF\xBDz \xEF\xBF\xBD\xEF\xBF\xBD"},
    {"StandardErrorIsNeitherReturnedNorPassedOn", "echo first >&2; echo out; echo last >&2",
     "out\n"},
    {"StandardErrorIsWritable", "echo error >&2 && echo written", "written\n"},
    {"StandardErrorStaysOpenForTheChildren", "sleep 0.2; (echo error >&2) && echo written",
     "written\n"},
    {"MegabytesOnStandardErrorHoldNothingUp", "head -c 3000000 /dev/zero >&2 && echo written",
     "written\n"},
    // Without a writer at its other end, `cat` would end at once.
    {"NothingComesOnStandardInput", "timeout 1 cat; echo $?", "124\n"},
    {"StandardInputIsAPipe", "[ -p /dev/stdin ] && echo pipe", "pipe\n"}};

INSTANTIATE_TEST_SUITE_P(Rows, Script, testing::ValuesIn(kTextRows), OutcomeOf());

TEST(ScriptRunnerTest, ProgramSeesNoDescriptorsOfTheService) {
  EXPECT_EQ(RunScript(QStringLiteral("ls"), {QStringLiteral("/proc/self/fd")}).toStdString(),
            "0\n1\n2\n3\n");  // the last is that of the folder
}

TEST(ScriptRunnerTest, ArgumentsArriveAsTheyAre) {
  EXPECT_EQ(ScriptOutput(
                "for word; do echo \"<$word>\"; done",
                {QStringLiteral("a b"), QString(), QStringLiteral("*"), QStringLiteral("$HOME; id"),
                 QStringLiteral("\"q\" 'r' \\"), QStringLiteral("ü"), QStringLiteral("--x=1")}),
            "<a b>\n<>\n<*>\n<$HOME; id>\n<\"q\" 'r' \\>\n<ü>\n<--x=1>\n");
}

TEST(ScriptRunnerTest, HundredMegabytesAreReadWhole) {
  EXPECT_EQ(ScriptOutput("head -c 100000000 /dev/zero | tr '\\0' x").size(), 100'000'000U);
}

// In kilobytes, from a line of /proc/self/status.
long StatusOf(const std::string &name) {
  const std::string status = ReadFile("/proc/self/status");
  return std::stol(status.substr(status.find(name + ":") + name.size() + 1));
}

TEST(ScriptRunnerTest, StandardErrorIsNotKeptInMemory) {
#ifdef __SANITIZE_ADDRESS__
  GTEST_SKIP() << "the sanitizer keeps what is freed";
#endif
  WriteFile("/proc/self/clear_refs", "5");  // the peak begins anew
  const long before = StatusOf("VmRSS");
  EXPECT_EQ(ScriptOutput("head -c 100000000 /dev/zero >&2; echo out"), "out\n");
  EXPECT_LT(StatusOf("VmHWM") - before, 50'000);
}

// --- Programs that cannot be run ---------------------------------------------------------------

TEST(ScriptRunnerTest, PathIsNoCommandLineAndMayHoldBlanksAndQuotes) {
  const std::string path = "/tmp/a \"b\" $c;d.sh";
  WriteScript(path, "echo run");
  EXPECT_EQ(OutputFrom(path), "run\n");
  EXPECT_EQ(OutputFrom("/bin/echo hello"), "");
}

TEST(ScriptRunnerTest, ProgramThatCannotBeStartedGivesNothing) {
  WriteScript("/tmp/no-interpreter.sh", "");
  WriteFile("/tmp/no-interpreter.sh", "#!/tmp/missing\necho run\n");
  WriteFile("/tmp/not-executable.sh", "#!/bin/sh\necho run\n");
  ASSERT_EQ(symlink("loop.sh", "/tmp/loop.sh"), 0);
  for (const char *program : {"/tmp/missing.sh", "/tmp", "/tmp/no-interpreter.sh",
                              "/tmp/not-executable.sh", "/tmp/loop.sh"}) {
    EXPECT_EQ(OutputFrom(program), "") << program;
  }
  EXPECT_FALSE(HasZombies());
}

// --- Scripts that end late or leave something behind -------------------------------------------

TEST(ScriptRunnerTest, ChildrenThatHoldTheOutputOpenAreNotWaitedFor) {
  std::string text;
  EXPECT_LT(TimeOf([&] { text = ScriptOutput("echo out; sleep 1000 & echo $! >/tmp/id"); }),
            kNotLong);
  EXPECT_EQ(text, "out\n");
  const pid_t child = std::stoi(ReadFile("/tmp/id"));
  EXPECT_EQ(kill(child, SIGKILL), 0) << "it goes on";
  EXPECT_EQ(waitpid(child, nullptr, 0), child);
}

TEST(ScriptRunnerTest, ScriptThatClosesItsOutputIsWaitedFor) {
  std::string text;
  EXPECT_GE(TimeOf([&] { text = ScriptOutput("echo out; exec >&- 2>&-; exec sleep 1"); }),
            milliseconds{1000});
  EXPECT_EQ(text, "out\n");
}

TEST(ScriptRunnerTest, ThousandRunsLeaveNoZombieAndNoDescriptor) {
  WriteScript(kScript, "echo out");
  ASSERT_EQ(OutputFrom(kScript), "out\n");  // opens what Qt keeps open
  const std::size_t before = CountOpenDescriptors();
  for (int run = 0; run < 1000; ++run) {
    const char *program = run % 10 == 0 ? "/tmp/missing.sh" : kScript;
    ASSERT_EQ(RunScript(QLatin1String(program), {}).size(), run % 10 == 0 ? 0 : 4);
  }
  EXPECT_FALSE(HasZombies());
  EXPECT_EQ(CountOpenDescriptors(), before);
}

// Each takes the half minute that a script may take. They stand in a row, so that each runs in
// another shard.
void ExpectTimeout(const std::string &lines, const std::string &output) {
  const auto run = [&] { EXPECT_EQ(ScriptOutput("echo $$ >/tmp/id; " + lines), output); };
  const milliseconds time = TimeOf(run);
  EXPECT_GE(time, std::chrono::seconds(30));
  EXPECT_LT(time, std::chrono::seconds(30) + kNotLong);
  const std::string id = ReadFile("/tmp/id");
  EXPECT_FALSE(std::filesystem::exists("/proc/" + id.substr(0, id.size() - 1)));
  EXPECT_FALSE(HasZombies());
}

TEST(ScriptTimeoutTest, OutputSoFarIsReturned) {
  ExpectTimeout("echo one; printf two; exec sleep 999", "one\ntwo");
}

TEST(ScriptTimeoutTest, IgnoredSignalsDoNotHelp) {
  ExpectTimeout("trap '' HUP INT TERM; echo out; exec sleep 999", "out\n");
}

TEST(ScriptTimeoutTest, ClosedOutputDoesNotHelp) {
  ExpectTimeout("echo out; exec >&- 2>&- <&-; exec sleep 999", "out\n");
}

TEST(ScriptTimeoutTest, ScriptThatGoesOnPrintingIsEndedLikeOthers) {
  std::string text;
  const auto time = TimeOf([&] { text = ScriptOutput("while :; do echo; sleep 0.1; done"); });
  EXPECT_EQ(text.find_first_not_of('\n'), std::string::npos);
  EXPECT_GE(text.size(), 100U);
  EXPECT_GE(time, std::chrono::seconds(30));
  EXPECT_LT(time, std::chrono::seconds(30) + kNotLong);
}

// Another process holds the script at its end, for a second after it was killed.
TEST(ScriptTimeoutTest, EndOfAKilledScriptIsWaitedForWithoutAWord) {
  const pid_t tracer = fork();
  int status = 0;
  if (tracer == 0) {
    std::string id;
    Eventually([&] { return !(id = ReadFile("/tmp/id")).empty(); });
    const pid_t script = std::stoi(id);
    const bool isHeld = ptrace(PTRACE_SEIZE, script, nullptr, PTRACE_O_TRACEEXIT) == 0 &&
                        waitpid(script, &status, __WALL) == script && WIFSTOPPED(status);
    std::this_thread::sleep_for(std::chrono::seconds(1));
    _exit(isHeld && ptrace(PTRACE_DETACH, script, nullptr, nullptr) == 0 ? 0 : 1);
  }
  EXPECT_GE(TimeOf([] { ScriptOutput("echo $$ >/tmp/id; exec sleep 999"); }),
            std::chrono::seconds(31));
  EXPECT_EQ(waitpid(tracer, &status, 0), tracer);
  EXPECT_EQ(status, 0);
}

// --- The process check -------------------------------------------------------------------------

// What the check says when `pgrep` is a script of these lines.
bool IsRunningFor(std::string_view lines) {
  WriteScript("/tmp/bin/pgrep", lines);
  PutFirstInPath("/tmp/bin");
  return IsProcessRunning(QStringLiteral("horizon-client"));
}

TEST(ProcessCheckTest, AnyOutputMeansRunning) {
  EXPECT_TRUE(IsRunningFor("echo 1234; exit 1"));
  EXPECT_TRUE(IsRunningFor("echo"));
  EXPECT_TRUE(IsRunningFor("printf ' '"));
  EXPECT_FALSE(IsRunningFor("echo 1234 >&2"));
}

TEST(ProcessCheckTest, NameIsTheOnlyArgumentAndAPattern) {
  IsRunningFor("printf '%s,' \"$@\" >/tmp/arguments");
  EXPECT_EQ(ReadFile("/tmp/arguments"), "horizon-client,");
  std::filesystem::remove("/tmp/bin/pgrep");
  const IdleProcess process("my-horizon-cl");
  EXPECT_TRUE(IsProcessRunning(QStringLiteral("^my.*cl$")));
  EXPECT_FALSE(IsProcessRunning(QStringLiteral("^horizon")));
}

TEST(ProcessCheckTest, WithoutPgrepNothingRuns) {
  const IdleProcess process("horizon-client");
  const QString name = QStringLiteral("horizon-client");
  EXPECT_TRUE(IsProcessRunning(name));
  setenv("PATH", "/tmp/missing", 1);
  EXPECT_EQ(OutputOf([&] { EXPECT_FALSE(IsProcessRunning(name)); }), (Output{"", ""}));
}

}  // namespace
}  // namespace ov
