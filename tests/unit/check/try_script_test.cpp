#include "check/try_script.h"

#include <QJsonDocument>
#include <QRegularExpression>

#include "check/checked_files.h"
#include "support/support.h"

namespace ov {
namespace {

// The time differs from run to run.
std::string WithoutTimes(const QByteArray &text) {
  static const QRegularExpression kTime(Q("[0-9]+( ms|,\"word\")"));
  return QString::fromUtf8(text).replace(kTime, Q("N\\1")).toStdString();
}

// What is printed, and the findings behind it, without the folder of the scripts.
std::string Tried(const std::string &name, const std::string &settings) {
  Findings findings;
  const ScriptAnswer answer =
      TryScript(*FindMonitorOfScript(Q(name)), SettingsWith(settings).InForce(), findings);
  QString text = Q(WithoutTimes(AsText(answer)) + Sentences(findings));
  return text.remove(Q("/usr/lib/orvan/ov-event-logger/")).toStdString();
}

std::string PathOf(const std::string &name) { return "/usr/lib/orvan/ov-event-logger/" + name; }

struct ScriptRow : Row {
  std::string script;  // the commands
  std::string settings;
  std::string expected;
};

// --- perf.sh -----------------------------------------------------------------------------------

constexpr char kPerf[] =
    "allowed=perf01 perf02 perf03\nperfMon=1\nmemThreshold=50\ndiskThreshold=20\n";

class PerfScript : public testing::TestWithParam<ScriptRow> {};

TEST_P(PerfScript, IsTried) {
  WriteScript(PathOf("perf.sh"), GetParam().script);
  EXPECT_EQ(Tried("perf.sh", GetParam().settings), GetParam().expected);
}

const ScriptRow kPerfRows[] = {
    {"EachReadingIsCompared", "echo cpu=80; echo mem=49.996; echo disk = 99.99", kPerf,
     "perf.sh: status 0, N ms\n"
     "  \"cpu=80\"  cpu is 80.00 %, which reaches the threshold of 80 %\n"
     "  \"mem=49.996\"  mem is 50.00 %, below the threshold of 50 %\n"
     "  \"disk = 99.99\"  disk is 99.99 %, which reaches the threshold of 20 %\n"
     "raises perf01 80.00% > 80.00%\n"
     "raises perf03 99.99% > 20.00%\n"},
    {"OtherLinesArePassedOver", "echo cpu=1; echo x=2; echo; echo mem=ü; printf disk=3=4", kPerf,
     "perf.sh: status 0, N ms\n"
     "  \"cpu=1\"  cpu is 1.00 %, below the threshold of 80 %\n"
     "  \"x=2\"  passed over\n"
     "  \"\"  passed over\n"
     "  \"mem=ü\"  mem is 0.00 %, below the threshold of 50 %\n"
     "  \"disk=3=4\"  passed over\n"
     "raises nothing with the settings in force\n"
     "script-unusable: perf.sh gives no number for mem, disk: a reading that never came counts as "
     "0. It must print the lines cpu=, mem= and disk= with percents such as 12.5 <perf01 perf02 "
     "perf03>"},
    {"LastReadingHolds", "echo cpu=100; echo cpu=1; echo mem=1; echo disk=1", kPerf,
     "perf.sh: status 0, N ms\n"
     "  \"cpu=100\"  cpu is 100.00 %, which reaches the threshold of 80 %\n"
     "  \"cpu=1\"  cpu is 1.00 %, below the threshold of 80 %\n"
     "  \"mem=1\"  mem is 1.00 %, below the threshold of 50 %\n"
     "  \"disk=1\"  disk is 1.00 %, below the threshold of 20 %\n"
     "raises nothing with the settings in force\n"},
    {"LastReadingMayBeTooLong", "echo cpu=1; echo cpu=100; echo mem=1; echo disk=1", kPerf,
     "perf.sh: status 0, N ms\n"
     "  \"cpu=1\"  cpu is 1.00 %, below the threshold of 80 %\n"
     "  \"cpu=100\"  cpu is 100.00 %, which reaches the threshold of 80 %\n"
     "  \"mem=1\"  mem is 1.00 %, below the threshold of 50 %\n"
     "  \"disk=1\"  disk is 1.00 %, below the threshold of 20 %\n"
     "raises nothing with the settings in force\n"
     "reading-too-long: perf.sh gives a reading that makes a text of over 15 characters, such as "
     "\"100.00% > 90.00%\": it ends the service. Let it print at most 99.99 <perf01 perf02 "
     "perf03>"},
    {"LongReadingThatIsNotAllowedDoesNotCount", "echo cpu=100; echo mem=1; echo disk=1",
     "allowed=perf02\nperfMon=1",
     "perf.sh: status 0, N ms\n"
     "  \"cpu=100\"  cpu is 100.00 %, which reaches the threshold of 80 %\n"
     "  \"mem=1\"  mem is 1.00 %, below the threshold of 80 %\n"
     "  \"disk=1\"  disk is 1.00 %, below the threshold of 80 %\n"
     "raises nothing with the settings in force\n"},
    {"OnlyAllowedEventsAreRaised", "echo cpu=90; echo mem=90; echo disk=90",
     "allowed=perf02\nperfMon=1",
     "perf.sh: status 0, N ms\n"
     "  \"cpu=90\"  cpu is 90.00 %, which reaches the threshold of 80 %\n"
     "  \"mem=90\"  mem is 90.00 %, which reaches the threshold of 80 %\n"
     "  \"disk=90\"  disk is 90.00 %, which reaches the threshold of 80 %\n"
     "raises perf02 90.00% > 80.00%\n"},
    {"MonitorThatIsOffWouldRaise", "echo cpu=90; echo mem=90; echo disk=90",
     "allowed=perf01 perf03",
     "perf.sh: status 0, N ms\n"
     "  \"cpu=90\"  cpu is 90.00 %, which reaches the threshold of 80 %\n"
     "  \"mem=90\"  mem is 90.00 %, which reaches the threshold of 80 %\n"
     "  \"disk=90\"  disk is 90.00 %, which reaches the threshold of 80 %\n"
     "would raise perf01 90.00% > 80.00%, but `perfMon` is off\n"
     "would raise perf03 90.00% > 80.00%, but `perfMon` is off\n"},
    {"WordIsNoReading", "echo cpu=x; echo mem=1; echo disk=1", kPerf,
     "perf.sh: status 0, N ms\n"
     "  \"cpu=x\"  cpu is 0.00 %, below the threshold of 80 %\n"
     "  \"mem=1\"  mem is 1.00 %, below the threshold of 50 %\n"
     "  \"disk=1\"  disk is 1.00 %, below the threshold of 20 %\n"
     "raises nothing with the settings in force\n"
     "script-unusable: perf.sh gives no number for cpu: a reading that never came counts as 0. It "
     "must print the lines cpu=, mem= and disk= with percents such as 12.5 <perf01 perf02 perf03>"},
    {"NothingIsNoReading", "exit 3", kPerf,
     "perf.sh: status 3, N ms\n"
     "raises nothing with the settings in force\n"
     "script-unusable: perf.sh gives no number for cpu, mem, disk: a reading that never came "
     "counts as 0. It must print the lines cpu=, mem= and disk= with percents such as 12.5 <perf01 "
     "perf02 perf03>"},
    {"SignalIsTold", "echo cpu=1; echo mem=2; echo disk=3; kill -9 $$", kPerf,
     "perf.sh: was ended by a signal, N ms\n"
     "  \"cpu=1\"  cpu is 1.00 %, below the threshold of 80 %\n"
     "  \"mem=2\"  mem is 2.00 %, below the threshold of 50 %\n"
     "  \"disk=3\"  disk is 3.00 %, below the threshold of 20 %\n"
     "raises nothing with the settings in force\n"}};

INSTANTIATE_TEST_SUITE_P(Rows, PerfScript, testing::ValuesIn(kPerfRows), OutcomeOf());

// --- usb-devices.sh ----------------------------------------------------------------------------

class UsbScript : public testing::TestWithParam<ScriptRow> {};

TEST_P(UsbScript, IsTried) {
  WriteScript(PathOf("usb-devices.sh"), GetParam().script);
  EXPECT_EQ(Tried("usb-devices.sh", GetParam().settings), GetParam().expected);
}

const ScriptRow kUsbRows[] = {
    {"EachLineIsADevice", "echo b; echo; echo 'ä \"x'; echo b", "allowed=sys05\nusbDevMon=1",
     "usb-devices.sh: status 0, N ms\n"
     "  \"b\"  a device\n"
     "  \"\"  passed over\n"
     "  \"ä \\\"x\"  a device\n"
     "  \"b\"  a device\n"
     "raises sys05 b\n"
     "raises sys05 ä \"x\n"},
    {"PresentDevicesMustBeAllowed", "echo b", "allowed=sys06\nusbDevMon=1",
     "usb-devices.sh: status 0, N ms\n"
     "  \"b\"  a device\n"
     "raises nothing with the settings in force\n"},
    {"FailureWithADeviceIsUsable", "echo b; exit 1", "allowed=sys05\nusbDevMon=1",
     "usb-devices.sh: status 1, N ms\n"
     "  \"b\"  a device\n"
     "raises sys05 b\n"},
    {"SuccessWithoutADeviceIsUsable", "", "allowed=sys05",
     "usb-devices.sh: status 0, N ms\n"
     "raises nothing with the settings in force\n"},
    {"FailureWithoutADeviceIsNot", "exit 1", "allowed=sys05\nusbDevMon=1",
     "usb-devices.sh: status 1, N ms\n"
     "raises nothing with the settings in force\n"
     "script-unusable: usb-devices.sh prints nothing and ends so: status 1. Its monitor sees no "
     "device <sys05 sys06 sys07>"},
    {"SignalWithoutADeviceIsNot", "kill -9 $$", "allowed=sys05\nusbDevMon=1",
     "usb-devices.sh: was ended by a signal, N ms\n"
     "raises nothing with the settings in force\n"
     "script-unusable: usb-devices.sh prints nothing and ends so: was ended by a signal. Its "
     "monitor sees no device <sys05 sys06 sys07>"},
    {"LongDeviceIsCutAsInARecord", "printf %0130d 7", "allowed=sys05\nusbDevMon=1",
     "usb-devices.sh: status 0, N ms\n"
     "  "
     "\"0000000000000000000000000000000000000000000000000000000000000000000000000000000000000000000"
     "000000000000000000000000000000000000007\"  a device\n"
     "raises sys05 "
     "000000000000000000000000000000000000000000000000000000000000000000000000000000000000000000000"
     "0000000000000000000000000000000000\n"}};

INSTANTIATE_TEST_SUITE_P(Rows, UsbScript, testing::ValuesIn(kUsbRows), OutcomeOf());

// --- vmw-signin-status.sh ----------------------------------------------------------------------

class SigninScript : public testing::TestWithParam<ScriptRow> {};

TEST_P(SigninScript, IsTried) {
  const IdleProcess client("horizon-client");
  WriteScript(PathOf("vmw-signin-status.sh"), "case $1 in " + GetParam().script + "; esac");
  EXPECT_EQ(Tried("vmw-signin-status.sh", GetParam().settings), GetParam().expected);
}

constexpr char kSignin[] = "allowed=sec03 sec04\nvmwSigninMon=1";

const ScriptRow kSigninRows[] = {
    {"SuccessIsRaised", "user) echo signin:me:there:x ;; success) echo y", kSignin,
     "vmw-signin-status.sh user: status 0, N ms\n"
     "  \"signin:me:there:x\"  the user is \"me/there\"\n"
     "vmw-signin-status.sh success: status 0, N ms\n"
     "  \"y\"  any text at all means yes\n"
     "vmw-signin-status.sh error: status 0, N ms\n"
     "raises sec03 me/there\n"},
    {"ErrorIsRaised", "user) echo signin:me::x ;; error) echo y", kSignin,
     "vmw-signin-status.sh user: status 0, N ms\n"
     "  \"signin:me::x\"  the user is \"signin:me::x\\n\"\n"
     "vmw-signin-status.sh success: status 0, N ms\n"
     "vmw-signin-status.sh error: status 0, N ms\n"
     "  \"y\"  any text at all means yes\n"
     "raises sec04 signin:me::x\\n\n"
     "script-unusable: vmw-signin-status.sh prints no signin:USER:DOMAIN:OUTCOME for \"user\": the "
     "whole answer becomes the values of the event, line feed included <sec03 sec04>"},
    {"OnlyAllowedEventsAreRaised", "user) echo signin:me::x ;; success) echo y",
     "allowed=sec04\nvmwSigninMon=1",
     "vmw-signin-status.sh user: status 0, N ms\n"
     "  \"signin:me::x\"  the user is \"signin:me::x\\n\"\n"
     "vmw-signin-status.sh success: status 0, N ms\n"
     "  \"y\"  any text at all means yes\n"
     "vmw-signin-status.sh error: status 0, N ms\n"
     "raises nothing with the settings in force\n"
     "script-unusable: vmw-signin-status.sh prints no signin:USER:DOMAIN:OUTCOME for \"user\": the "
     "whole answer becomes the values of the event, line feed included <sec03 sec04>"},
    {"WholeAnswerIsNoUser", "user) echo me", kSignin,
     "vmw-signin-status.sh user: status 0, N ms\n"
     "  \"me\"  the user is \"me\\n\"\n"
     "vmw-signin-status.sh success: status 0, N ms\n"
     "vmw-signin-status.sh error: status 0, N ms\n"
     "raises nothing with the settings in force\n"
     "script-unusable: vmw-signin-status.sh prints no signin:USER:DOMAIN:OUTCOME for \"user\": the "
     "whole answer becomes the values of the event, line feed included <sec03 sec04>"},
    {"SameAnswerForBothIsUnusable", "success|error) echo no", kSignin,
     "vmw-signin-status.sh user: status 0, N ms\n"
     "vmw-signin-status.sh success: status 0, N ms\n"
     "  \"no\"  any text at all means yes\n"
     "vmw-signin-status.sh error: status 0, N ms\n"
     "  \"no\"  any text at all means yes\n"
     "raises sec03 \n"
     "raises sec04 \n"
     "script-unusable: vmw-signin-status.sh prints the same for \"success\" and \"error\": its "
     "monitor raises both events. It must print nothing for what did not happen <sec03 sec04>"},
    {"OtherAnswersForBothAreUsable", "success) echo 1 ;; error) echo 2", kSignin,
     "vmw-signin-status.sh user: status 0, N ms\n"
     "vmw-signin-status.sh success: status 0, N ms\n"
     "  \"1\"  any text at all means yes\n"
     "vmw-signin-status.sh error: status 0, N ms\n"
     "  \"2\"  any text at all means yes\n"
     "raises sec03 \n"
     "raises sec04 \n"},
    {"FailureWithoutAnAnswerIsUnusable", "*) exit 2", kSignin,
     "vmw-signin-status.sh user: status 2, N ms\n"
     "vmw-signin-status.sh success: status 2, N ms\n"
     "vmw-signin-status.sh error: status 2, N ms\n"
     "raises nothing with the settings in force\n"
     "script-unusable: vmw-signin-status.sh prints nothing and ends so: status 2. Its monitor sees "
     "no sign-in <sec03 sec04>"},
    {"OneSuccessIsEnough", "success) ;; *) exit 2", kSignin,
     "vmw-signin-status.sh user: status 2, N ms\n"
     "vmw-signin-status.sh success: status 0, N ms\n"
     "vmw-signin-status.sh error: status 2, N ms\n"
     "raises nothing with the settings in force\n"},
    {"FailureWithAnAnswerIsUsable", "success) echo y; exit 2 ;; *) exit 2", kSignin,
     "vmw-signin-status.sh user: status 2, N ms\n"
     "vmw-signin-status.sh success: status 2, N ms\n"
     "  \"y\"  any text at all means yes\n"
     "vmw-signin-status.sh error: status 2, N ms\n"
     "raises sec03 \n"}};

INSTANTIATE_TEST_SUITE_P(Rows, SigninScript, testing::ValuesIn(kSigninRows), OutcomeOf());

TEST(TryScriptTest, SigninNeedsTheClient) {
  WriteScript(PathOf("vmw-signin-status.sh"), "[ $1 != success ] || echo y");
  EXPECT_EQ(Tried("vmw-signin-status.sh", kSignin),
            "vmw-signin-status.sh user: status 0, N ms\n"
            "vmw-signin-status.sh success: status 0, N ms\n"
            "  \"y\"  any text at all means yes\n"
            "vmw-signin-status.sh error: status 0, N ms\n"
            "would raise sec03 , but no process horizon-client runs\n");
  EXPECT_EQ(Tried("vmw-signin-status.sh", "allowed=sec03"),
            "vmw-signin-status.sh user: status 0, N ms\n"
            "vmw-signin-status.sh success: status 0, N ms\n"
            "  \"y\"  any text at all means yes\n"
            "vmw-signin-status.sh error: status 0, N ms\n"
            "would raise sec03 , but `vmwSigninMon` is off\n");
}

// --- Scripts that do not run -------------------------------------------------------------------

TEST(TryScriptTest, MissingScriptIsFound) {
  std::filesystem::remove(PathOf("usb-devices.sh"));
  EXPECT_EQ(Tried("usb-devices.sh", "usbDevMon=1"),
            "raises nothing with the settings in force\n"
            "no-script: usb-devices.sh does not exist: its monitor sees nothing. Install it, or "
            "switch the monitor off <sys05 sys06 sys07>");
}

TEST(TryScriptTest, FileThatCannotBeExecutedIsFound) {
  WriteScript(PathOf("usb-devices.sh"), "");
  std::filesystem::permissions(PathOf("usb-devices.sh"), std::filesystem::perms(0644));
  const std::string expected =
      "raises nothing with the settings in force\n"
      "script-not-executable: usb-devices.sh is no executable file: its monitor sees nothing. "
      "Install the script with mode 0755 <sys05 sys06 sys07>";
  EXPECT_EQ(Tried("usb-devices.sh", "usbDevMon=1"), expected);
  std::filesystem::remove(PathOf("usb-devices.sh"));
  std::filesystem::create_directory(PathOf("usb-devices.sh"));
  EXPECT_EQ(Tried("usb-devices.sh", "usbDevMon=1"), expected);
  std::filesystem::remove(PathOf("usb-devices.sh"));
}

TEST(TryScriptTest, ScriptThatDoesNotStartIsFound) {
  const std::string path = PathOf("usb-devices.sh");
  WriteScript(path, "");
  WriteFile(path, "#!/no/such/program\n");
  EXPECT_EQ(Tried("usb-devices.sh", "usbDevMon=1"),
            "usb-devices.sh: does not start, N ms\n"
            "raises nothing with the settings in force\n"
            "script-not-executable: usb-devices.sh does not start: its monitor sees nothing. Its "
            "first line must name an interpreter that exists, as in #!/bin/sh <sys05 sys06 sys07>");
  WriteFile(path, "#!/bin/sh\r\n");
  EXPECT_EQ(
      Tried("usb-devices.sh", "usbDevMon=1"),
      "usb-devices.sh: does not start, N ms\n"
      "raises nothing with the settings in force\n"
      "script-not-executable: usb-devices.sh does not start: its monitor sees nothing. Its first "
      "line ends with a carriage return: save it with the line ends of Unix <sys05 sys06 sys07>");
}

// --- Answers -----------------------------------------------------------------------------------

TEST(TryScriptTest, JsonHasTheRunsAndTheEvents) {
  WriteScript(PathOf("usb-devices.sh"), "echo ä; echo; exit 3");
  Findings findings;
  const ScriptAnswer answer = TryScript(*FindMonitorOfScript(Q("usb-devices.sh")),
                                        SettingsWith("allowed=sys05").InForce(), findings);
  EXPECT_EQ(WithoutTimes(QJsonDocument(AsJson(answer)).toJson(QJsonDocument::Compact)),
            "{\"events\":[\"sys05 ä\"],\"hindrance\":\"`usbDevMon` is "
            "off\",\"path\":\"/usr/lib/orvan/ov-event-logger/"
            "usb-devices.sh\",\"runs\":[{\"end\":\"status 3\",\"lines\":[{\"meaning\":\"a "
            "device\",\"text\":\"ä\"},{\"meaning\":\"passed "
            "over\",\"text\":\"\"}],\"milliseconds\":N,\"word\":\"\"}]}");
}

TEST(TryScriptTest, TimeOfARunIsMeasured) {
  WriteScript(PathOf("usb-devices.sh"), "sleep 0.2");
  Findings findings;
  const ScriptAnswer answer =
      TryScript(*FindMonitorOfScript(Q("usb-devices.sh")), SettingsWith("").InForce(), findings);
  ASSERT_EQ(answer.trials.size(), 1);
  EXPECT_GE(answer.trials[0].time.count(), 200);
  EXPECT_LT(answer.trials[0].time.count(), 10'000);
}

TEST(BuiltInMonitorsTest, ScriptIsFoundByItsName) {
  EXPECT_EQ(ScriptNames().join(QLatin1Char(' ')).toStdString(),
            "perf.sh usb-devices.sh vmw-signin-status.sh");
  EXPECT_EQ(FindMonitorOfScript(Q("perf.sh"))->key.toStdString(), "perfMon");
  EXPECT_EQ(FindMonitorOfScript(Q("erf.sh")), nullptr);
  EXPECT_EQ(FindMonitorOfScript({}), nullptr);
}

}  // namespace
}  // namespace ov
