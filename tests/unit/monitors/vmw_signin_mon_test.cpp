#include "monitors/vmw_signin_mon.h"

#include <cstdio>
#include <cstdlib>

#include "support/support.h"

namespace ov {
namespace {

// The sign-in script logs its calls, and answers from a file per word. So does `pgrep`.
constexpr char kCalls[] = "/tmp/calls";
constexpr char kClientRuns[] = "/tmp/pgrep-answer";

void Answer(const std::string &word, std::string_view text) {
  WriteFile("/tmp/answer-" + word, text);
}

class VmwSigninMonTest : public testing::Test {
 protected:
  VmwSigninMonTest() {
    WriteScript("/tmp/bin/pgrep", "echo \"pgrep $*\" >>/tmp/calls; cat /tmp/pgrep-answer");
    WriteScript(kSigninScriptPath, "echo \"$*\" >>/tmp/calls; cat \"/tmp/answer-$1\"; exit 1");
    WriteFile(kClientRuns, "1234\n");
    Answer("user", "x:alice:CORP:y\n");
    Answer("success", "");
    Answer("error", "");
  }

  const FirstInPath folder_{"/tmp/bin"};
};

// --- The user ----------------------------------------------------------------------------------

struct UserRow : Row {
  std::string output;
  std::string user;
};

class SigninUser : public VmwSigninMonTest, public testing::WithParamInterface<UserRow> {};

TEST_P(SigninUser, IsRead) {
  Answer("user", GetParam().output);
  OutputOf([] { EXPECT_EQ(VmwSigninMon::GetUsername().toStdString(), GetParam().user); });
  EXPECT_EQ(ReadFile(kCalls), "user\n");
}

const UserRow kSigninUserRows[] = {
    {"UserIsTheSecondFieldAndTheThird", "x:alice:CORP:y\n", "alice/CORP"},
    {"UserStandsAloneBeforeABlankThirdField", "x:alice: \t\n:y", "alice"},
    {"FieldsAreNotTrimmed", "x: alice : CORP\n:y\n", " alice / CORP\n"},
    {"BlankSecondFieldIsAUser", "x: : CORP:y\n", " / CORP"},
    {"EmptyFieldsDoNotCount", ":x::alice:CORP:y:", "alice/CORP"},
    {"ThreeFieldsAndAnEmptyOneAreNotFour", "x::alice:y", "x::alice:y"},
    {"LineFeedAfterTheLastColonIsAField", "x:alice:CORP:\n", "alice/CORP"},
    {"FiveFieldsAreTheUserAsTheyAre", "a:b:c:d:e\n", "a:b:c:d:e\n"},
    {"OneFieldIsTheUserAsItIs", "alice\n", "alice\n"},
    {"ColonsAloneAreTheUserAsTheyAre", "::::", "::::"},
    {"SilentScriptGivesAnEmptyUser", "", ""},
    {"PlaceholdersStayAsTheyAre", "x:%1 %2:%L1 %%:y", "%1 %2/%L1 %%"},
    {"UserIsReadAsUtf8", "Jürgen", "Jürgen"}};

INSTANTIATE_TEST_SUITE_P(Rows, SigninUser, testing::ValuesIn(kSigninUserRows), OutcomeOf<UserRow>);

// --- The checks --------------------------------------------------------------------------------

struct Step {
  std::string success;
  std::string error;
  bool clientRuns = true;
};

struct CheckRow : Row {
  std::vector<Step> steps;
  Events events;
  std::string calls;
  bool successAllowed = true;
  bool errorAllowed = true;
};

class SigninChecks : public VmwSigninMonTest, public testing::WithParamInterface<CheckRow> {};

TEST_P(SigninChecks, AskTheScriptAndRaiseEvents) {
  VmwSigninMon monitor(GetParam().successAllowed, GetParam().errorAllowed);
  Events events;
  for (const Step &step : GetParam().steps) {
    WriteFile(kClientRuns, step.clientRuns ? "1234\n" : "");
    Answer("success", step.success);
    Answer("error", step.error);
    OutputOf([&] { monitor.Check(); });
    for (const auto &event : TakeEvents()) {
      events.push_back(event);
    }
  }
  EXPECT_EQ(events, GetParam().events);
  EXPECT_EQ(ReadFile(kCalls), GetParam().calls);
}

const Events kNone;
const Events kSuccess{{"sec03", "alice/CORP"}};
const Events kError{{"sec04", "alice/CORP"}};
const Events kSuccessAndError{kSuccess[0], kError[0]};
const Events kSuccessTwice{kSuccess[0], kSuccess[0]};
const Step kNoClient{"ok", "bad", false};
const std::string kPgrep = "pgrep horizon-client\n";
const std::string kAll = kPgrep + "user\nsuccess\nerror\n";

const CheckRow kSigninChecksRows[] = {
    {"ScriptIsNotAskedWithoutAClient", {kNoClient}, kNone, kPgrep},
    {"ScriptIsNotAskedWhenNoEventIsAllowed", {{"ok", "bad"}}, kNone, kPgrep, false, false},
    {"SuccessIsReportedWithTheUser", {{"ok", ""}}, kSuccess, kAll},
    {"ErrorIsReportedWithTheUser", {{"", "bad"}}, kError, kAll},
    {"AnyOutputMeansYes", {{"\n", ""}}, kSuccess, kAll},
    {"BothOutcomesOfOneCheckAreReported", {{"ok", "bad"}}, kSuccessAndError, kAll},
    {"SuccessIsReportedOncePerRunOfTheClient",
     {{"ok", ""}, {"ok", "bad"}},
     kSuccess,
     kAll + kPgrep},
    {"ErrorIsReportedOncePerRunOfTheClient", {{"", "bad"}, {"ok", "bad"}}, kError, kAll + kPgrep},
    {"MonitorKeepsAskingUntilThereIsAnOutcome",
     {{"", ""}, {"", ""}, {"ok", ""}},
     kSuccess,
     kAll + kAll + kAll},
    {"NextRunOfTheClientIsReportedAgain",
     {{"ok", ""}, kNoClient, {"ok", ""}},
     kSuccessTwice,
     kAll + kPgrep + kAll},
    {"SuccessThatIsNotAllowedIsNotAskedFor",
     {{"ok", "bad"}},
     kError,
     kPgrep + "user\nerror\n",
     false,
     true},
    {"ErrorThatIsNotAllowedIsNotAskedForAndDoesNotEndTheAsking",
     {{"", "bad"}, {"ok", "bad"}},
     kSuccess,
     kPgrep + "user\nsuccess\n" + kPgrep + "user\nsuccess\n",
     true,
     false}};

INSTANTIATE_TEST_SUITE_P(Rows, SigninChecks, testing::ValuesIn(kSigninChecksRows),
                         OutcomeOf<CheckRow>);

TEST_F(VmwSigninMonTest, InitAndANewMonitorForgetWhatWasReported) {
  Answer("success", "ok\n");
  VmwSigninMon monitor(true, true);
  OutputOf([&] { monitor.Check(); });
  EXPECT_EQ(OutputOf([&] { monitor.Init(); }), (Output{"", ""}));
  OutputOf([&] { monitor.Check(); });
  EXPECT_EQ(TakeEvents(), kSuccessTwice);
  OutputOf([&] { VmwSigninMon(true, true).Check(); });
  EXPECT_EQ(TakeEvents(), kSuccess);
}

TEST_F(VmwSigninMonTest, CheckPrintsWhatItAsksForDebugging) {
  VmwSigninMon monitor(true, true);
  const auto check = [&] { monitor.Check(); };
  EXPECT_EQ(OutputOf(check), (Output{"",
                                     "VmwSigninMon: check status\n"
                                     "VmwSigninMon::GetUsername:  \"x:alice:CORP:y\\n\"\n"}));
  WriteFile(kClientRuns, "");
  EXPECT_EQ(OutputOf(check), (Output{"", ""}));
}

TEST_F(VmwSigninMonTest, MissingScriptReportsNothing) {
  std::remove(kSigninScriptPath);
  VmwSigninMon monitor(true, true);
  EXPECT_EQ(OutputOf([&] { monitor.Check(); }),
            (Output{"", "VmwSigninMon: check status\nVmwSigninMon::GetUsername:  \"\"\n"}));
  EXPECT_EQ(TakeEvents(), kNone);
}

TEST_F(VmwSigninMonTest, RealClientIsFoundWhileItRuns) {
  std::remove("/tmp/bin/pgrep");
  Answer("success", "ok\n");
  VmwSigninMon monitor(true, true);
  const auto check = [&] {
    OutputOf([&] { monitor.Check(); });
    return TakeEvents();
  };
  EXPECT_EQ(check(), kNone);
  {
    const IdleProcess client("horizon-client");
    EXPECT_EQ(check(), kSuccess);
    EXPECT_EQ(check(), kNone);
  }
  EXPECT_EQ(check(), kNone);
  const IdleProcess client("horizon-client");
  EXPECT_EQ(check(), kSuccess);
}

}  // namespace
}  // namespace ov
