#include "check/check_template.h"

#include "check/checked_files.h"
#include "support/support.h"

namespace ov {
namespace {

Findings FoundInTemplate(const std::string &settings, const std::string &definitions) {
  Findings findings;
  CheckTemplate(SettingsWith(settings), DefinitionsWith(definitions), kHost, findings);
  return findings;
}

// --- Headers and tokens ------------------------------------------------------------------------

// The template, and the causes and columns that are found in it over UDP.
class UdpTemplate : public testing::TestWithParam<TextRow> {};

TEST_P(UdpTemplate, IsChecked) {
  EXPECT_EQ(Places(FoundInTemplate("formatString=\"" + GetParam().input + "\"", "")),
            GetParam().expected);
}

const TextRow kHeaders[] = {
    {"DateBehindThePriority", "<[PRI]>[DATE] [ID]", ""},
    {"DateBehindABlank", "<[PRI]> [DATE] [ID]", ""},
    {"DateBeforeAColon", "<[PRI]>[DATE]: [ID]", ""},
    {"DateBeforeAColonAndText", "<[PRI]>[DATE]:[ID]", "no-header 1:14"},
    {"DateBehindTwoBlanks", "<[PRI]>  [DATE] [ID]", "no-header 1:14"},
    {"DateBeforeText", "<[PRI]>[DATE][ID]", "no-header 1:14"},
    {"DateBehindText", "<[PRI]>x[DATE] [ID]", "no-header 1:14"},
    {"DateBehindANumber", "<1>[DATE] [ID]", "no-priority 1:14"},
    {"DateBehindThreeDigits", "<191>[DATE] [ID]", "no-priority 1:14"},
    {"DateBehindFourDigits", "<1910>[DATE] [ID]", "no-priority 1:14|no-header 1:14"},
    {"DateBehindNoDigit", "<>[DATE] [ID]", "no-priority 1:14|no-header 1:14"},
    {"DateAlone", "[DATE] [ID]", "no-priority 1:14"},
    {"DateAtTheEnd", "<[PRI]>[DATE]", "no-event-id 1:14"},
    {"DateOfLowerCase", "<[PRI]>[date] [ID]", "no-header 1:14|unknown-token 1:22"},
    {"PriorityBehindABlank", " <[PRI]>[DATE] [ID]", "no-priority 1:14|no-header 1:14"},
    {"PriorityWithoutBrackets", "[PRI][DATE] [ID]", "no-priority 1:14|no-header 1:14"},
    {"WordsOfRfc5424", "<[PRI]>1 - [NAME] a - [ID] -", ""},
    {"WordsOfRfc5424BeforeText", "<[PRI]>1 - [NAME] a - [ID] - x", ""},
    {"WordsOfRfc5424WithoutAPriority", "1 - [NAME] a - [ID] - x", "no-priority 1:14"},
    {"WordsOfRfc5424WithStructuredData", "<[PRI]>1 - [NAME] a - [ID] [x@1 y]", ""},
    {"StructuredDataWithoutAnAtSign", "<[PRI]>1 - [NAME] a - [ID] [x y]", "no-header 1:14"},
    {"TextBehindTheDash", "<[PRI]>1 - [NAME] a - [ID] -x", "no-header 1:14"},
    {"ThreeWords", "<[PRI]>1 - [NAME] a [ID] -", "no-header 1:14"},
    {"FiveWords", "<[PRI]>1 - [NAME] a b - [ID] -", "no-header 1:14"},
    {"DateAmongTheWords", "<[PRI]>1 - [DATE] a - [ID] -", "no-header 1:14"},
    {"DescriptionAmongTheWords", "<[PRI]>1 - a[DESC] a - [ID] -", "no-header 1:14"},
    {"ValuesAmongTheWords", "<[PRI]>1 - a [ID] - [VAL] -", "no-header 1:14"},
    {"TimeAmongTheWords", "<[PRI]>1 x a b - [ID] -", "no-header 1:14"},
    {"OtherVersion", "<[PRI]>2 - a b - [ID] -", "no-header 1:14"},
    {"Nothing", "", "no-priority 1:14|no-event-id 1:14|no-header 1:14"}};

INSTANTIATE_TEST_SUITE_P(Headers, UdpTemplate, testing::ValuesIn(kHeaders), OutcomeOf());

const TextRow kTokens[] = {
    {"EveryTokenIsKnown", "<[PRI]>[DATE] [NAME] [IP] [ID] [DESC] [VAL] [SEV]", ""},
    {"LowerCaseIsLikeAToken", "<[PRI]>[DATE] [ID] [id]", "unknown-token 1:34"},
    {"BlanksWithinAreLikeAToken", "<[PRI]>[DATE] [ID] [ ID ]", "unknown-token 1:34"},
    {"TwoBlanksWithinAreNot", "<[PRI]>[DATE] [ID] [  ID]", ""},
    {"SignsWithinAreLikeAToken", "<[PRI]>[DATE] [ID] [A9_:-z]", "unknown-token 1:34"},
    {"DigitInFrontIsNotLikeAToken", "<[PRI]>[DATE] [ID] [9a]", ""},
    {"OtherSignsAreNotLikeAToken", "<[PRI]>[DATE] [ID] [a.b] [] [a b]", ""},
    {"BracesAreLikeAToken", "<[PRI]>[DATE] [ID] {ID}", "unknown-token 1:34"},
    {"BracesAroundLowerCaseAreNot", "<[PRI]>[DATE] [ID] {id} {}", ""},
    {"PercentSignsAreLikeAToken", "<[PRI]>[DATE] [ID] %ID%", "unknown-token 1:34"},
    {"PercentSignsAroundLowerCaseAreNot", "<[PRI]>[DATE] [ID] %id% %%", ""},
    {"SameWordIsFoundOnce", "<[PRI]>[DATE] [ID] [x] [x]", "unknown-token 1:34"},
    {"TwoWordsAreFound", "<[PRI]>[DATE] [ID] [x] [y]", "unknown-token 1:34|unknown-token 1:38"},
    {"IdentifierInBracesIsNone", "<[PRI]>[DATE] {ID}", "no-event-id 1:14|unknown-token 1:29"},
    {"LineFeedIsFound", "<[PRI]>[DATE] [ID]\\x0a", "line-break 1:14"},
    {"CarriageReturnIsFound", "<[PRI]>[DATE] [ID]\\x0d", "line-break 1:14"},
    {"TabIsNoLineBreak", "<[PRI]>[DATE] [ID]\\x9", ""}};

INSTANTIATE_TEST_SUITE_P(Tokens, UdpTemplate, testing::ValuesIn(kTokens), OutcomeOf());

TEST(CheckTemplateTest, TcpTakesAwayTheBlanksInFront) {
  EXPECT_EQ(
      Places(FoundInTemplate("protocol=syslog-tcp\nformatString=\" <[PRI]>[DATE] [ID] \"", "")),
      "");
}

TEST(CheckTemplateTest, TemplateThatIsMissingIsTheDefault) {
  EXPECT_EQ(Places(FoundInTemplate("", "")), "");
}

// --- First characters --------------------------------------------------------------------------

struct DigitRow : Row {
  std::string settings;
  std::string definitions;
  bool isFound;
};

class FirstCharacter : public testing::TestWithParam<DigitRow> {};

TEST_P(FirstCharacter, IsChecked) {
  EXPECT_EQ(FoundInTemplate(GetParam().settings, GetParam().definitions).Has("starts-with-digit"),
            GetParam().isFound);
}

const DigitRow kDigits[] = {
    {"ZeroIsADigit", "protocol=syslog-tcp\nformatString=0", "", true},
    {"NineIsADigit", "protocol=syslog-tcp\nformatString=9", "", true},
    {"SlashIsNone", "protocol=syslog-tcp\nformatString=/", "", false},
    {"ColonIsNone", "protocol=syslog-tcp\nformatString=:", "", false},
    {"SecondCharacterDoesNotCount", "protocol=syslog-tcp\nformatString=a0", "", false},
    {"DigitBehindABlankCounts", "protocol=syslog-tcp\nformatString=\" 0\"", "", true},
    {"UdpNeedsNone", "formatString=0", "1,,,err", false},
    {"EmptyLineHasNone", "protocol=syslog-tcp\nformatString=", "", false},
    {"ValuesMayBeginWithOne", "protocol=syslog-tcp\nformatString=[VAL]", "", true},
    {"PriorityIsOne", "protocol=syslog-tcp\nformatString=[PRI]", "", true},
    {"IdentifierMayBeginWithOne", "protocol=syslog-tcp\nformatString=[ID]",
     "a,,,err\n1,,,err\nb,,,err", true},
    {"IdentifierNeedNot", "protocol=syslog-tcp\nformatString=[ID]", "a,,,err\n#1,,,err\n1,,",
     false},
    {"DescriptionMayBeginWithOne", "protocol=syslog-tcp\nformatString=[DESC]", "a,,1,err", true},
    {"LineThatDoesNotHoldDoesNotCount", "protocol=syslog-tcp\nformatString=[DESC]",
     "a,,1,err\na,,b,err", false}};

INSTANTIATE_TEST_SUITE_P(Rows, FirstCharacter, testing::ValuesIn(kDigits), OutcomeOf());

// --- Lengths -----------------------------------------------------------------------------------

struct LengthRow : Row {
  std::string settings;
  std::size_t description;  // bytes
  std::string expected;
};

class Length : public testing::TestWithParam<LengthRow> {};

// An identifier of two bytes, and values of 127.
TEST_P(Length, IsChecked) {
  const Findings findings =
      FoundInTemplate(GetParam().settings,
                      "a1,,,err\n"
                      "b1, label, " +
                          std::string(GetParam().description, 'd') + ",err\nb1,,\n");
  QStringList found;
  for (const Finding &finding : findings.Sorted()) {
    if (QLatin1String(finding.cause->name) == QLatin1String("line-too-long")) {
      found.append(QStringLiteral("%1:%2 %3 %4")
                       .arg(QString::number(finding.place.line),
                            QString::number(finding.place.column),
                            finding.sentence.section(QLatin1Char('.'), 0, 0),
                            finding.events.join(QLatin1Char(' '))));
    }
  }
  EXPECT_EQ(found.join(QLatin1Char('|')).toStdString(), GetParam().expected);
}

const LengthRow kLengths[] = {
    {"LineOf1024BytesIsUsual", "formatString=[ID][DESC][VAL]", 895, ""},
    {"LineOf1025BytesIsTooLong", "formatString=[ID][DESC][VAL]", 896,
     "2:12 with 127 bytes of values the line has 1025 bytes, more than the 1024 that every "
     "collector takes b1"},
    {"LineFeedOverTcpCounts", "protocol=syslog-tcp\nformatString=[ID][DESC][VAL]", 895,
     "2:12 with 127 bytes of values the line has 1025 bytes, more than the 1024 that every "
     "collector takes b1"},
    {"BytesCountAndNotCharacters", "formatString=\\xfc[ID][DESC][VAL]", 894,
     "2:12 with 127 bytes of values the line has 1025 bytes, more than the 1024 that every "
     "collector takes b1"},
    {"AddressAndNameCount", "formatString=[IP][NAME][DESC]", 1009,
     "2:12 with 127 bytes of values the line has 1025 bytes, more than the 1024 that every "
     "collector takes b1"}};

INSTANTIATE_TEST_SUITE_P(Rows, Length, testing::ValuesIn(kLengths), OutcomeOf());

TEST(CheckTemplateTest, OnlyTheLineThatHoldsIsTooLong) {
  const std::string text(1100, 'd');
  EXPECT_EQ(Places(FoundInTemplate(
                "", "a1,," + text + ",err\na1,,b,err\nb1,," + text + ",err\nb1,," + text)),
            "line-too-long 3:5");
}

// --- Sentences ---------------------------------------------------------------------------------

class SentencesAboutTemplate : public testing::TestWithParam<TextRow> {};

TEST_P(SentencesAboutTemplate, AreExact) {
  EXPECT_EQ(Sentences(FoundInTemplate("formatString=" + GetParam().input, "")),
            GetParam().expected);
}

const TextRow kTemplateSentences[] = {
    {"TokenThatIsMeant", "<[PRI]>[DATE] [ID] [id]",
     "unknown-token: [id] is no token, and goes out as it stands. Write [ID] <>"},
    {"NoTokenIsMeant", "<[PRI]>[DATE] [ID] {ABCDEF}",
     "unknown-token: {ABCDEF} is no token, and goes out as it stands. The tokens are [PRI] [DATE] "
     "[ID] [DESC] [VAL] [SEV] [NAME] [IP] <>"},
    {"NoPriorityAndNoHeader", "[ID]",
     "no-priority: the template does not begin with <[PRI]>: collectors take every line for "
     "user.notice, or for a number in brackets there. Begin it with <[PRI]> <>|no-header: rsyslog "
     "or syslog-ng finds no header here: it takes the time of receipt for the event's, and the "
     "sender's address or words of the text for the host and the program. Write "
     R"(formatString="<[PRI]>1 - [NAME] ov-event-logger - [ID] [ev@32473 ip=\"[IP]\" sev=\"[SEV]\" )"
     R"(at=\"[DATE]\" desc=\"[DESC]\"] [VAL]")"
     " <>"},
    {"NoEventIdAndALineBreak", "<[PRI]>[DATE] \\x0a",
     "no-event-id: the template has no [ID]: nobody can tell at the collector which event a line "
     "is about. Add it <>|line-break: the template holds a line break: over TCP a line feed makes "
     "several lines of each event, otherwise a control character stands in the line. Remove it, "
     "and close every double quote <>"},
    {"DigitInFront", "[PRI][DATE] [ID]\nprotocol=syslog-tcp",
     "no-priority: the template does not begin with <[PRI]>: collectors take every line for "
     "user.notice, or for a number in brackets there. Begin it with <[PRI]> <>|no-header: rsyslog "
     "or syslog-ng finds no header here: it takes the time of receipt for the event's, and the "
     "sender's address or words of the text for the host and the program. Write "
     R"(formatString="<[PRI]>1 - [NAME] ov-event-logger - [ID] [ev@32473 ip=\"[IP]\" sev=\"[SEV]\" )"
     R"(at=\"[DATE]\" desc=\"[DESC]\"] [VAL]")"
     " <>|starts-with-digit: lines begin with a digit: over "
     "TCP rsyslog takes the number for the length of the line, and cuts, joins or drops lines. "
     "Begin the template with <[PRI]> <>"}};

INSTANTIATE_TEST_SUITE_P(Rows, SentencesAboutTemplate, testing::ValuesIn(kTemplateSentences),
                         OutcomeOf());

}  // namespace
}  // namespace ov
