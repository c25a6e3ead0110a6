#include "monitors/vmw_signin_mon.h"

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
    PutFirstInPath("/tmp/bin");
    WriteScript("/tmp/bin/pgrep", "echo \"pgrep $*\" >>/tmp/calls; cat /tmp/pgrep-answer");
    WriteScript(kSigninScriptPath, "echo \"$*\" >>/tmp/calls; cat \"/tmp/answer-$1\"; exit 1");
    WriteFile(kClientRuns, "1234\n");
    Answer("user", "x:alice:CORP:y\n");
    Answer("success", "");
    Answer("error", "");
  }
};

// --- The user ----------------------------------------------------------------------------------

class SigninUser : public VmwSigninMonTest, public testing::WithParamInterface<TextRow> {};

TEST_P(SigninUser, IsRead) {
  Answer("user", GetParam().input);
  OutputOf([] { EXPECT_EQ(VmwSigninMon::GetUsername().toStdString(), GetParam().expected); });
  EXPECT_EQ(ReadFile(kCalls), "user\n");
}

const TextRow kSigninTextRows[] = {
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

INSTANTIATE_TEST_SUITE_P(Rows, SigninUser, testing::ValuesIn(kSigninTextRows), OutcomeOf());

// --- The checks --------------------------------------------------------------------------------

struct CheckRow : Row {
  // One check each: "-" without a client, or else what the outcomes "s", "e", "se" or "" answer.
  std::string checks;
  std::string events;
  std::string calls;
  bool successAllowed = true;
  bool errorAllowed = true;
};

class SigninChecks : public VmwSigninMonTest, public testing::WithParamInterface<CheckRow> {};

TEST_P(SigninChecks, AskTheScriptAndRaiseEvents) {
  VmwSigninMon monitor(GetParam().successAllowed, GetParam().errorAllowed);
  for (const std::string &check : Parts(GetParam().checks)) {
    WriteFile(kClientRuns, check == "-" ? "" : "1234\n");
    Answer("success", check[0] == 's' ? "ok" : "");
    Answer("error", check.find('e') != std::string::npos ? "\n" : "");
    OutputOf([&] { monitor.Check(); });
  }
  EXPECT_EQ(TakeEvents(), GetParam().events);
  EXPECT_EQ(ReadFile(kCalls), GetParam().calls);
}

const std::string kSuccess = "sec03 alice/CORP|";
const std::string kError = "sec04 alice/CORP|";
const std::string kPgrep = "pgrep horizon-client\n";
const std::string kAll = kPgrep + "user\nsuccess\nerror\n";
const std::string kNoError = kPgrep + "user\nsuccess\n";

const CheckRow kChecks[] = {
    {"ScriptIsNotAskedWithoutAClient", "-", "", kPgrep},
    {"ScriptIsNotAskedWhenNoEventIsAllowed", "se", "", kPgrep, false, false},
    {"SuccessIsReportedWithTheUserOncePerRunOfTheClient", "s|se", kSuccess, kAll + kPgrep},
    {"ErrorIsReportedWithTheUserOncePerRunOfTheClient", "e|se", kError, kAll + kPgrep},
    {"BothOutcomesOfOneCheckAreReported", "se", kSuccess + kError, kAll},
    {"MonitorKeepsAskingUntilThereIsAnOutcome", "||s", kSuccess, kAll + kAll + kAll},
    {"NextRunOfTheClientIsReportedAgain", "s|-|s", kSuccess + kSuccess, kAll + kPgrep + kAll},
    {"SuccessThatIsNotAllowedIsNotAskedFor", "se", kError, kPgrep + "user\nerror\n", false, true},
    {"ErrorThatIsNotAllowedIsNotAskedForAndDoesNotEndTheAsking", "e|se", kSuccess,
     kNoError + kNoError, true, false}};

INSTANTIATE_TEST_SUITE_P(Rows, SigninChecks, testing::ValuesIn(kChecks), OutcomeOf());

TEST_F(VmwSigninMonTest, InitAndANewMonitorForgetWhatWasReported) {
  Answer("success", "ok\n");
  VmwSigninMon monitor(true, true);
  OutputOf([&] { monitor.Check(); });
  EXPECT_EQ(OutputOf([&] { monitor.Init(); }), (Output{"", ""}));
  OutputOf([&] { monitor.Check(); });
  OutputOf([&] { VmwSigninMon(true, true).Check(); });
  EXPECT_EQ(TakeEvents(), kSuccess + kSuccess + kSuccess);
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

}  // namespace
}  // namespace ov
