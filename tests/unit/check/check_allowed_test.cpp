#include "check/check_allowed.h"

#include "check/checked_files.h"
#include "support/support.h"

namespace ov {
namespace {

constexpr char kDefinitions[] =
    "perf01,,,err\nperf02,,,err\nperf03,,,err\nsys05,,,err\nsys06,,,err\nsys07,,,err\n"
    "sec03,,,err\nsec04,,,err\nnet02,,,err\nnet03,,,err\nuser01,,,err\n\"q\",,,err\n";

Findings FoundInAllowed(const std::string &settings,
                        const std::string &definitions = kDefinitions) {
  Findings findings;
  CheckAllowed(SettingsWith(settings), DefinitionsWith(definitions), findings);
  return findings;
}

class PlacesInAllowed : public testing::TestWithParam<TextRow> {};

TEST_P(PlacesInAllowed, AreExact) {
  EXPECT_EQ(Places(FoundInAllowed(GetParam().input)), GetParam().expected);
}

const TextRow kAllowedPlaces[] = {
    {"DefinedIdentifierHasNone", "allowed=user01", ""},
    {"BlanksInARowAreNoIdentifier", "allowed=\" user01  \"", ""},
    {"MissingKeyIsFoundInTheWholeFile", "port=1", "nothing-allowed 0:0"},
    {"EmptyKeyIsFound", "port=1\nallowed=", "nothing-allowed 2:9"},
    {"BlanksAreNothing", "allowed=\"  \"", "nothing-allowed 1:9"},
    {"ListIsSaidAlready", "allowed=a,b", ""},
    {"IdentifierThatIsNotDefinedIsFound", "allowed=user01 zzz", "allowed-not-defined 1:16"},
    {"EachIsFoundAtItsPlace", "allowed=zzz user01 aaa",
     "allowed-not-defined 1:9|allowed-not-defined 1:20"},
    {"OtherCaseIsFound", "allowed=User01", "allowed-case 1:9"},
    {"CommaIsFound", "allowed=\"user01,sys05\"", "allowed-separator 1:10"},
    {"SemicolonIsFound", "allowed=\"user01;sys05\"", "allowed-separator 1:10"},
    {"TabIsFound", "allowed=user01\tsys05", "allowed-separator 1:9"},
    {"QuotedIdentifierMayBeDefined", "allowed=\\\"q\\\"", ""}};

INSTANTIATE_TEST_SUITE_P(Rows, PlacesInAllowed, testing::ValuesIn(kAllowedPlaces), OutcomeOf());

const TextRow kMonitors[] = {
    {"MonitorWithoutItsEventsIsFound", "allowed=user01\nperfMon=1", "monitor-without-event 2:9"},
    {"EachMonitorIsFound", "allowed=user01\nusbDevMon=1\nvmwSigninMon=2\nagentConnMon=3",
     "monitor-without-event 2:11|monitor-without-event 3:14|monitor-without-event 4:14"},
    {"OneOfItsEventsIsEnough",
     "allowed=perf03 sys06 sec04 net03\nperfMon=1\nusbDevMon=1\n"
     "vmwSigninMon=1\nagentConnMon=1",
     ""},
    {"EventsOfMonitorsThatAreOffAreFound", "allowed=perf01 user01 sys07",
     "event-without-monitor 1:9|event-without-monitor 1:23"},
    {"EventsOfAMonitorThatIsOnAreNone", "allowed=perf01 perf02 perf03\nperfMon=1", ""},
    {"MonitorIsFoundEvenIfNothingIsAllowed", "perfMon=1",
     "monitor-without-event 1:9|nothing-allowed 0:0"},
    {"MonitorThatIsOffNeedsNoEvent", "allowed=user01\nperfMon=0", ""}};

INSTANTIATE_TEST_SUITE_P(Monitors, PlacesInAllowed, testing::ValuesIn(kMonitors), OutcomeOf());

class SentencesAboutAllowed : public testing::TestWithParam<TextRow> {};

TEST_P(SentencesAboutAllowed, AreExact) {
  EXPECT_EQ(Sentences(FoundInAllowed("allowed=" + GetParam().input)), GetParam().expected);
}

const TextRow kAllowedSentences[] = {
    {"Nothing", "",
     "nothing-allowed: `allowed` names no event, and the service forwards none. List the "
     "identifiers with blanks between them <>"},
    {"Separator", "\"user01,zzz\"",
     "allowed-separator: the service takes \"user01,zzz\" for one identifier. Separate identifiers "
     "by blanks <user01 zzz>"},
    {"LineBreak", "\"user01\\nsys05\"",
     "allowed-separator: the service takes \"user01\\nsys05\" for one identifier. Separate "
     "identifiers by blanks, and close every double quote <user01 sys05>"},
    {"Case", "User01",
     "allowed-case: no event is defined as \"User01\", but one as \"user01\": capitals count. "
     "Write it as it is defined <User01 user01>"},
    {"OtherThatIsMeant", "usr01",
     "allowed-not-defined: \"usr01\" is not defined in /tmp/ov-event-def.csv: the service drops "
     "the event, or, if a monitor raises it, sends it without description and severity. Define it, "
     "or remove it here, or write user01 <usr01>"},
    {"Comment", "user01 #",
     "allowed-not-defined: \"#\" is not defined in /tmp/ov-event-def.csv: the service drops the "
     "event, or, if a monitor raises it, sends it without description and severity. Define it, or "
     "remove it here: a comment begins with \";\" <#>"},
    {"Wildcard", "zzz*",
     "allowed-not-defined: \"zzz*\" is not defined in /tmp/ov-event-def.csv: the service drops the "
     "event, or, if a monitor raises it, sends it without description and severity. Define it, or "
     "remove it here: identifiers stand without quotes, and there is no wildcard <zzz*>"},
    {"NothingIsMeant", "zzz",
     "allowed-not-defined: \"zzz\" is not defined in /tmp/ov-event-def.csv: the service drops the "
     "event, or, if a monitor raises it, sends it without description and severity. Define it, or "
     "remove it here <zzz>"},
    {"MonitorWithoutEvents", "user01\nusbDevMon=1",
     "monitor-without-event: `usbDevMon` is on, but `allowed` names none of its events sys05 sys06 "
     "sys07: the monitor costs time and raises nothing. Allow them, or switch it off <sys05 sys06 "
     "sys07>"},
    {"EventWithoutMonitor", "sec04",
     "event-without-monitor: sec04 is allowed, but `vmwSigninMon`, the monitor that raises it, is "
     "off: only `ov-event-logger -e` raises it then <sec04>"}};

INSTANTIATE_TEST_SUITE_P(Rows, SentencesAboutAllowed, testing::ValuesIn(kAllowedSentences),
                         OutcomeOf());

TEST(CheckAllowedTest, DefinitionsThatCannotBeReadLeaveOpenWhatIsDefined) {
  Findings findings;
  CheckAllowed(SettingsWith("allowed=zzz"), DefinitionsFile(Q("/tmp/missing")), findings);
  EXPECT_EQ(Places(findings), "");
}

}  // namespace
}  // namespace ov
