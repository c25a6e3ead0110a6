#include "check/event_answer.h"

#include <QJsonDocument>

#include "check/checked_files.h"
#include "check/line_maker.h"
#include "support/support.h"

namespace ov {
namespace {

struct Asked {
  std::string id = "perf01";
  std::string values = "95";
  std::string settings = "allowed=perf01\nformatString=<[PRI]>[ID] [VAL]\n";
  std::string definitions = "#\nperf01,CPU,Processor,warn\n";
};

template <typename Use>
auto Answered(const Asked &asked, Use &&use) {
  const SettingsFile settings = SettingsWith(asked.settings);
  const DefinitionsFile definitions = DefinitionsWith(asked.definitions);
  return use(AnswerFor(QByteArray::fromStdString(asked.id), QByteArray::fromStdString(asked.values),
                       settings, definitions, kHost));
}

std::string TextFor(const Asked &asked) {
  return Answered(asked, [](const EventAnswer &answer) { return AsText(answer).toStdString(); });
}

std::string JsonFor(const Asked &asked) {
  return Answered(asked, [](const EventAnswer &answer) {
    return QJsonDocument(AsJson(answer)).toJson(QJsonDocument::Compact).toStdString();
  });
}

// --- Answers -----------------------------------------------------------------------------------

TEST(EventAnswerTest, ForwardedEventHasItsLine) {
  EXPECT_EQ(TextFor({}),
            "record      identifier \"perf01\", values \"95\"\n"
            "definition  /tmp/ov-event-def.csv:2: perf01,CPU,Processor,warn\n"
            "allowed     yes, /tmp/ov-event-logger.ini:1\n"
            "forwarded   yes\n"
            "priority    28: daemon.warn\n"
            "length      13 bytes over UDP\n"
            "line        <28>perf01 95\n"
            "collectors  no table tells what they store of this template\n");
  EXPECT_EQ(JsonFor({}),
            R"({"allowed":true,"allowedLine":1,"cut":false,"defined":true,"definitionLine":2,)"
            R"("facility":3,"forwarded":true,"id":"perf01","length":13,"line":"<28>perf01 95",)"
            R"("priority":28,"severity":4,"values":"95"})");
}

TEST(EventAnswerTest, LineOverTcpHasItsLineFeedAndItsBytesAreCounted) {
  Asked asked;
  asked.settings += "protocol=syslog-tcp\n";
  asked.values = "ü";
  EXPECT_THAT(TextFor(asked),
              testing::EndsWith("length      14 bytes over TCP, the line feed included\n"
                                "line        <28>perf01 ü\n"
                                "collectors  no table tells what they store of this template\n"));
  EXPECT_THAT(JsonFor(asked), testing::HasSubstr(R"("length":14,"line":"<28>perf01 ü\n",)"));
}

TEST(EventAnswerTest, EventThatIsNotDefinedHasNoLineAndMayBeMeantOtherwise) {
  const Asked asked{"perv01", "a\n\"", "allowed=perv01", "perf01,,,err"};
  EXPECT_EQ(TextFor(asked),
            "record      identifier \"perv01\", values \"a\\n\\\"\"\n"
            "definition  none in /tmp/ov-event-def.csv; is it perf01?\n"
            "allowed     yes, /tmp/ov-event-logger.ini:1\n"
            "forwarded   no: define it, and restart the service\n");
  EXPECT_EQ(JsonFor(asked),
            R"({"allowed":true,"allowedLine":1,"cut":false,"defined":false,"forwarded":false,)"
            R"("id":"perv01","meant":"perf01","values":"a\n\""})");
}

TEST(EventAnswerTest, EventThatIsNotLikeAnotherIsNotMeantOtherwise) {
  const Asked asked{"x", "", "", "perf01,,,err"};
  EXPECT_EQ(TextFor(asked),
            "record      identifier \"x\", values \"\"\n"
            "definition  none in /tmp/ov-event-def.csv\n"
            "allowed     no, /tmp/ov-event-logger.ini\n"
            "forwarded   no: define it, add it to `allowed`, and restart the service\n");
  EXPECT_EQ(JsonFor(asked),
            R"({"allowed":false,"cut":false,"defined":false,"forwarded":false,"id":"x",)"
            R"("values":""})");
}

TEST(EventAnswerTest, EventThatIsNotAllowedHasNoLine) {
  const Asked asked{"perf01", "", "\nallowed=x", "perf01,,\x1b,err"};
  EXPECT_EQ(TextFor(asked),
            "record      identifier \"perf01\", values \"\"\n"
            "definition  /tmp/ov-event-def.csv:1: perf01,,\\x1b,err\n"
            "allowed     no, /tmp/ov-event-logger.ini:2\n"
            "forwarded   no: add it to `allowed`\n");
  EXPECT_THAT(JsonFor(asked),
              testing::HasSubstr(R"("allowedLine":2,"cut":false,"defined":true,"definitionLine":1,)"
                                 R"("forwarded":false,"id")"));
}

// --- Records -----------------------------------------------------------------------------------

struct CutRow : Row {
  std::size_t id;  // its length
  std::size_t values;
  bool isCut;
};

class RecordOf : public testing::TestWithParam<CutRow> {};

TEST_P(RecordOf, IsToldIfItIsCut) {
  const Asked asked{std::string(GetParam().id, 'i'), std::string(GetParam().values, 'v'), "", ""};
  const std::string cut = GetParam().isCut ? ", cut to the 7 and 127 bytes of a record" : "";
  EXPECT_THAT(TextFor(asked),
              testing::StartsWith("record      identifier \"" +
                                  std::string(std::min<std::size_t>(GetParam().id, 7), 'i') +
                                  "\", values \"" +
                                  std::string(std::min<std::size_t>(GetParam().values, 127), 'v') +
                                  "\"" + cut + "\n"));
  EXPECT_THAT(JsonFor(asked),
              testing::HasSubstr(GetParam().isCut ? R"("cut":true)" : R"("cut":false)"));
}

const CutRow kCuts[] = {{"LongestThatFitsIsWhole", 7, 127, false},
                        {"IdentifierOfEightBytesIsCut", 8, 127, true},
                        {"ValuesOf128BytesAreCut", 7, 128, true},
                        {"BothAreCut", 9, 200, true}};

INSTANTIATE_TEST_SUITE_P(Rows, RecordOf, testing::ValuesIn(kCuts), OutcomeOf());

// The service looks identifiers up byte by byte.
TEST(EventAnswerTest, IdentifierIsLatin1AndValuesAreUtf8) {
  EXPECT_THAT(TextFor({"\xC3\xBC", "\xC3\xBC", "", ""}),
              testing::StartsWith("record      identifier \"Ã¼\", values \"ü\"\n"));
}

// --- Priorities --------------------------------------------------------------------------------

struct PriorityRow : Row {
  std::string facility;
  std::string severity;
  std::string expected;
};

class Priority : public testing::TestWithParam<PriorityRow> {};

TEST_P(Priority, HasItsName) {
  Asked asked;
  asked.settings += "facility=" + GetParam().facility;
  asked.definitions = "perf01,,," + GetParam().severity;
  EXPECT_THAT(TextFor(asked), testing::HasSubstr("\npriority    " + GetParam().expected + "\n"));
}

const PriorityRow kPriorities[] = {
    {"Least", "0", "emerg", "0: kern.emerg"},
    {"Most", "23", "debug", "191: local7.debug"},
    {"AboveTheMost", "24", "emerg", "192: no priority that a collector knows"},
    {"FarAboveTheMost", "1000", "emerg", "8000: no priority that a collector knows"},
    {"BelowTheLeast", "-1", "debug", "-1: no priority that a collector knows"},
    {"FarBelowTheLeast", "-9", "emerg", "-72: no priority that a collector knows"},
    {"UnknownSeverityCountsDown", "0", "x", "-1: no priority that a collector knows"},
    {"UnknownSeverityIsThatOfTheFacilityBefore", "4", "x", "31: daemon.debug"},
    {"Alert", "1", "alert", "9: user.alert"},
    {"Crit", "2", "crit", "18: mail.crit"},
    {"Err", "4", "err", "35: auth.err"},
    {"Warn", "5", "warn", "44: syslog.warn"},
    {"Notice", "6", "notice", "53: lpr.notice"},
    {"Info", "7", "info", "62: news.info"},
    {"Uucp", "8", "debug", "71: uucp.debug"},
    {"Cron", "9", "emerg", "72: cron.emerg"},
    {"Authpriv", "10", "emerg", "80: authpriv.emerg"},
    {"Ftp", "11", "emerg", "88: ftp.emerg"},
    {"Ntp", "12", "emerg", "96: ntp.emerg"},
    {"Audit", "13", "emerg", "104: audit.emerg"},
    {"LogAlert", "14", "emerg", "112: alert.emerg"},
    {"Clock", "15", "emerg", "120: clock.emerg"},
    {"Local0", "16", "emerg", "128: local0.emerg"},
    {"Local1", "17", "emerg", "136: local1.emerg"},
    {"Local2", "18", "emerg", "144: local2.emerg"},
    {"Local3", "19", "emerg", "152: local3.emerg"},
    {"Local4", "20", "emerg", "160: local4.emerg"},
    {"Local5", "21", "emerg", "168: local5.emerg"},
    {"Local6", "22", "emerg", "176: local6.emerg"}};

INSTANTIATE_TEST_SUITE_P(Rows, Priority, testing::ValuesIn(kPriorities), OutcomeOf());

TEST(EventAnswerTest, JsonHasTheNumbersOfAnUnknownPriority) {
  Asked asked;
  asked.settings += "facility=24";
  asked.definitions = "perf01,,,x";
  EXPECT_THAT(JsonFor(asked), testing::HasSubstr(R"("facility":24,)"));
  EXPECT_THAT(JsonFor(asked), testing::HasSubstr(R"("priority":191,"severity":-1,)"));
}

// --- Lines -------------------------------------------------------------------------------------

struct LineRow : Row {
  std::string settings;
  std::string expected;
};

class LineOfSettings : public testing::TestWithParam<LineRow> {};

TEST_P(LineOfSettings, IsMade) {
  LineMaker maker(SettingsWith(GetParam().settings).InForce(), kHost);
  EventDefinition definition;
  definition.description = Q("Tür");
  definition.severityName = Q("err");
  definition.severity = 3;
  EXPECT_EQ(maker.LineFor(MakeEventRecord("x1", " v "), definition).toStdString(),
            GetParam().expected);
}

const LineRow kLineRows[] = {
    {"OfEveryTokenButTheDate", "formatString=[PRI] [ID] [DESC] [VAL] [SEV] [NAME] [IP]\nfacility=2",
     "19 x1 Tür  v  err tc-0042 192.0.2.1"},
    {"OverUdpWithItsBlanks", "formatString=[VAL]", " v "},
    {"OverTcpWithoutBlanksAroundItAndWithALineFeed", "formatString=[VAL]\nprotocol=syslog-tcp",
     "v\n"}};

INSTANTIATE_TEST_SUITE_P(Rows, LineOfSettings, testing::ValuesIn(kLineRows), OutcomeOf());

}  // namespace
}  // namespace ov
