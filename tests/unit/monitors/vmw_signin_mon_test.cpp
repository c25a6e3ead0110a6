#include "monitors/vmw_signin_mon.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <memory>
#include <string>
#include <string_view>

#include "support/events.h"
#include "support/files.h"
#include "support/output.h"
#include "support/polling.h"
#include "support/programs.h"

namespace ov {
namespace {

// The sign-in script notes down its calls, and answers from a file per word. So does `pgrep`.
constexpr char kCalls[] = "/tmp/calls";
constexpr char kClientRuns[] = "/tmp/pgrep-answer";

class VmwSigninMonTest : public testing::Test {
 protected:
  VmwSigninMonTest() {
    TakeEvents();
    WriteScript("/tmp/bin/pgrep", "echo \"pgrep $*\" >>/tmp/calls; cat /tmp/pgrep-answer");
    WriteScript(kSigninScriptPath, "echo \"$*\" >>/tmp/calls; cat \"/tmp/answer-$1\"; exit 1");
    WriteFile(kCalls, "");
    WriteFile(kClientRuns, "1234\n");
    Answer("user", "x:alice:CORP:y\n");
    Answer("success", "");
    Answer("error", "");
  }

  static void Answer(const std::string &word, std::string_view text) {
    WriteFile("/tmp/answer-" + word, text);
  }

  static std::string TakeCalls() {
    std::ifstream file(kCalls);
    std::string calls(std::istreambuf_iterator<char>(file), {});
    WriteFile(kCalls, "");
    return calls;
  }

  static Events Check(VmwSigninMon &monitor) {
    OutputOf([&] { monitor.Check(); });
    return TakeEvents();
  }

  static Events CheckOfANewOne(bool successAllowed, bool errorAllowed) {
    VmwSigninMon monitor(successAllowed, errorAllowed);
    return Check(monitor);
  }

  static std::string UserFor(std::string_view output) {
    Answer("user", output);
    std::string user;
    OutputOf([&] { user = VmwSigninMon::GetUsername().toStdString(); });
    return user;
  }

  const Events kNone;
  const Events kSuccess{{"sec03", "alice/CORP"}};
  const Events kError{{"sec04", "alice/CORP"}};
  FirstInPath folder_{"/tmp/bin"};
  VmwSigninMon monitor_{true, true};
};

TEST_F(VmwSigninMonTest, HasItsNameAndPeriod) {
  EXPECT_EQ(monitor_.Name(), QStringLiteral("Omnissa Signin Monitor"));
  EXPECT_EQ(monitor_.Period(), 3);
}

TEST_F(VmwSigninMonTest, UserIsTheSecondFieldAndTheThird) {
  EXPECT_EQ(UserFor("x:alice:CORP:y"), "alice/CORP");
  EXPECT_EQ(UserFor("x:alice:CORP:y\n"), "alice/CORP");
}

TEST_F(VmwSigninMonTest, UserStandsAloneBeforeABlankThirdField) {
  EXPECT_EQ(UserFor("x:alice: :y\n"), "alice");
  EXPECT_EQ(UserFor("x: alice : \t\n:y\n"), " alice ");
}

TEST_F(VmwSigninMonTest, FieldsOfTheUserAreNotTrimmed) {
  EXPECT_EQ(UserFor("x: alice : CORP\n:y\n"), " alice / CORP\n");
  EXPECT_EQ(UserFor("x: : CORP:y\n"), " / CORP");
}

TEST_F(VmwSigninMonTest, EmptyFieldsOfTheUserDoNotCount) {
  EXPECT_EQ(UserFor("x::alice:y"), "x::alice:y");
  EXPECT_EQ(UserFor(":x::alice:CORP:y:"), "alice/CORP");
}

TEST_F(VmwSigninMonTest, LineFeedAfterTheLastColonIsAField) {
  EXPECT_EQ(UserFor("x:alice:CORP:\n"), "alice/CORP");
  EXPECT_EQ(UserFor("x:alice:CORP:y:\n"), "x:alice:CORP:y:\n");
}

TEST_F(VmwSigninMonTest, OutputWithoutFourFieldsIsTheUserAsItIs) {
  for (const char *output : {"", "\n", "alice\n", " alice", "::::", "a:b:c\n", "a:b:c:d:e\n"}) {
    EXPECT_EQ(UserFor(output), output);
  }
}

TEST_F(VmwSigninMonTest, PlaceholdersInTheUserStayAsTheyAre) {
  EXPECT_EQ(UserFor("x:%1:%2:y"), "%1/%2");
  EXPECT_EQ(UserFor("x:a%2b:%1 %L1 %%:y"), "a%2b/%1 %L1 %%");
  EXPECT_EQ(UserFor("x:%1: :y"), "%1");
  EXPECT_EQ(UserFor("%1 %s %n"), "%1 %s %n");
}

TEST_F(VmwSigninMonTest, GetUsernameAsksTheScriptOnce) {
  OutputOf([] { VmwSigninMon::GetUsername(); });
  EXPECT_EQ(TakeCalls(), "user\n");
}

TEST_F(VmwSigninMonTest, GetUsernamePrintsTheOutputForDebugging) {
  EXPECT_EQ(OutputOf([] { VmwSigninMon::GetUsername(); }),
            (Output{"", "VmwSigninMon::GetUsername:  \"x:alice:CORP:y\\n\"\n"}));
}

TEST_F(VmwSigninMonTest, CheckPrintsWhatItAsks) {
  EXPECT_EQ(OutputOf([this] { monitor_.Check(); }),
            (Output{"",
                    "VmwSigninMon: check status\n"
                    "VmwSigninMon::GetUsername:  \"x:alice:CORP:y\\n\"\n"}));
}

TEST_F(VmwSigninMonTest, CheckPrintsNothingWithoutAClient) {
  WriteFile(kClientRuns, "");
  EXPECT_EQ(OutputOf([this] { monitor_.Check(); }), (Output{"", ""}));
}

TEST_F(VmwSigninMonTest, OutcomeIsAskedForAfterTheUserAndSuccessFirst) {
  EXPECT_EQ(Check(monitor_), kNone);
  EXPECT_EQ(TakeCalls(), "pgrep horizon-client\nuser\nsuccess\nerror\n");
}

TEST_F(VmwSigninMonTest, ScriptIsNotAskedWithoutAClient) {
  WriteFile(kClientRuns, "");
  Answer("success", "ok\n");
  Answer("error", "bad\n");
  EXPECT_EQ(Check(monitor_), kNone);
  EXPECT_EQ(TakeCalls(), "pgrep horizon-client\n");
}

TEST_F(VmwSigninMonTest, ScriptIsNotAskedWhenNoEventIsAllowed) {
  Answer("success", "ok\n");
  Answer("error", "bad\n");
  VmwSigninMon monitor(false, false);
  EXPECT_EQ(OutputOf([&] { monitor.Check(); }), (Output{"", ""}));
  EXPECT_EQ(TakeEvents(), kNone);
  EXPECT_EQ(TakeCalls(), "pgrep horizon-client\n");
}

TEST_F(VmwSigninMonTest, SuccessIsReportedWithTheUser) {
  Answer("success", "ok");
  EXPECT_EQ(Check(monitor_), kSuccess);
}

TEST_F(VmwSigninMonTest, ErrorIsReportedWithTheUser) {
  Answer("error", "bad");
  EXPECT_EQ(Check(monitor_), kError);
}

TEST_F(VmwSigninMonTest, AnyOutputMeansYes) {
  Answer("success", "\n");
  EXPECT_EQ(Check(monitor_), kSuccess);
}

TEST_F(VmwSigninMonTest, BothOutcomesOfOneCheckAreReported) {
  Answer("success", "ok\n");
  Answer("error", "bad\n");
  EXPECT_EQ(Check(monitor_), (Events{{"sec03", "alice/CORP"}, {"sec04", "alice/CORP"}}));
}

TEST_F(VmwSigninMonTest, OutcomeIsReportedOncePerRunOfTheClient) {
  Answer("success", "ok\n");
  EXPECT_EQ(Check(monitor_), kSuccess);
  Answer("error", "bad\n");
  TakeCalls();
  EXPECT_EQ(Check(monitor_), kNone);
  EXPECT_EQ(TakeCalls(), "pgrep horizon-client\n");
}

TEST_F(VmwSigninMonTest, ErrorIsReportedOncePerRunOfTheClientToo) {
  Answer("error", "bad\n");
  EXPECT_EQ(Check(monitor_), kError);
  Answer("success", "ok\n");
  EXPECT_EQ(Check(monitor_), kNone);
}

TEST_F(VmwSigninMonTest, MonitorKeepsAskingUntilThereIsAnOutcome) {
  EXPECT_EQ(Check(monitor_), kNone);
  EXPECT_EQ(Check(monitor_), kNone);
  Answer("success", "ok\n");
  Answer("user", "x:bob:CORP:y\n");
  EXPECT_EQ(Check(monitor_), (Events{{"sec03", "bob/CORP"}}));
}

TEST_F(VmwSigninMonTest, NextRunOfTheClientIsReportedAgain) {
  Answer("success", "ok\n");
  EXPECT_EQ(Check(monitor_), kSuccess);
  WriteFile(kClientRuns, "");
  EXPECT_EQ(Check(monitor_), kNone);
  WriteFile(kClientRuns, "1235\n");
  EXPECT_EQ(Check(monitor_), kSuccess);
}

TEST_F(VmwSigninMonTest, InitForgetsWhatWasReported) {
  Answer("success", "ok\n");
  EXPECT_EQ(Check(monitor_), kSuccess);
  monitor_.Init();
  EXPECT_EQ(Check(monitor_), kSuccess);
}

TEST_F(VmwSigninMonTest, InitRunsNothing) {
  EXPECT_EQ(OutputOf([this] { monitor_.Init(); }), (Output{"", ""}));
  EXPECT_EQ(TakeCalls(), "");
}

TEST_F(VmwSigninMonTest, NewMonitorReportsAgain) {
  Answer("success", "ok\n");
  EXPECT_EQ(CheckOfANewOne(true, true), kSuccess);
  EXPECT_EQ(CheckOfANewOne(true, true), kSuccess);
}

TEST_F(VmwSigninMonTest, SuccessThatIsNotAllowedIsNotAskedFor) {
  Answer("success", "ok\n");
  Answer("error", "bad\n");
  EXPECT_EQ(CheckOfANewOne(false, true), kError);
  EXPECT_EQ(TakeCalls(), "pgrep horizon-client\nuser\nerror\n");
}

TEST_F(VmwSigninMonTest, ErrorThatIsNotAllowedIsNotAskedFor) {
  Answer("success", "ok\n");
  Answer("error", "bad\n");
  EXPECT_EQ(CheckOfANewOne(true, false), kSuccess);
  EXPECT_EQ(TakeCalls(), "pgrep horizon-client\nuser\nsuccess\n");
}

TEST_F(VmwSigninMonTest, OutcomeThatIsNotAllowedDoesNotEndTheAsking) {
  VmwSigninMon monitor(true, false);
  Answer("error", "bad\n");
  EXPECT_EQ(Check(monitor), kNone);
  Answer("success", "ok\n");
  EXPECT_EQ(Check(monitor), kSuccess);
}

TEST_F(VmwSigninMonTest, LongUserIsCutTo127Bytes) {
  Answer("success", "ok\n");
  Answer("user", std::string(200, 'x') + "\n");
  EXPECT_EQ(Check(monitor_), (Events{{"sec03", std::string(127, 'x')}}));
}

TEST_F(VmwSigninMonTest, UserKeepsItsLineFeedAndIsInUtf8) {
  Answer("success", "ok\n");
  Answer("user", "Jürgen\n");
  EXPECT_EQ(Check(monitor_), (Events{{"sec03", "Jürgen\n"}}));
}

TEST_F(VmwSigninMonTest, MissingScriptReportsNothing) {
  std::remove(kSigninScriptPath);
  EXPECT_EQ(OutputOf([this] { monitor_.Check(); }),
            (Output{"", "VmwSigninMon: check status\nVmwSigninMon::GetUsername:  \"\"\n"}));
  EXPECT_EQ(TakeEvents(), kNone);
}

TEST_F(VmwSigninMonTest, WithoutPgrepNothingIsReportedAndTheMonitorArmsAgain) {
  Answer("success", "ok\n");
  EXPECT_EQ(Check(monitor_), kSuccess);
  std::filesystem::rename("/tmp/bin/pgrep", "/tmp/pgrep");
  {
    const FirstInPath folder("/tmp/empty");
    setenv("PATH", "/tmp/empty", 1);
    EXPECT_EQ(Check(monitor_), kNone);
  }
  std::filesystem::rename("/tmp/pgrep", "/tmp/bin/pgrep");
  EXPECT_EQ(Check(monitor_), kSuccess);
}

TEST_F(VmwSigninMonTest, RealClientIsFound) {
  std::remove("/tmp/bin/pgrep");
  Answer("success", "ok\n");
  EXPECT_EQ(Check(monitor_), kNone);
  const IdleProcess client("horizon-client");
  EXPECT_EQ(Check(monitor_), kSuccess);
}

TEST_F(VmwSigninMonTest, StartedMonitorChecksAtOnce) {
  Answer("error", "bad\n");
  monitor_.Start();
  Events events;
  EXPECT_TRUE(Eventually([&] { return !(events = TakeEvents()).empty(); }));
  EXPECT_EQ(events, kError);
}

}  // namespace
}  // namespace ov
