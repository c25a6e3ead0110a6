#include "check/check_settings.h"

#include "check/checked_files.h"
#include "support/support.h"

namespace ov {
namespace {

// The lines, and behind them valid values of `host` and `allowed` unless the lines have the key.
template <typename Show>
std::string FoundInSettings(const std::string &lines, Show &&show) {
  std::string contents = lines + "\n";
  contents += lines.find("host") == std::string::npos ? "host=localhost\n" : "";
  contents += lines.find("allowed") == std::string::npos ? "allowed=a1\n" : "";
  const DefinitionsFile definitions = DefinitionsWith("a1,,,err\n");
  Findings findings;
  CheckSettings(SettingsWith(contents), definitions, findings);
  return show(findings);
}

class PlacesIn : public testing::TestWithParam<TextRow> {};

TEST_P(PlacesIn, Settings) {
  EXPECT_EQ(FoundInSettings(GetParam().input, Places), GetParam().expected);
}

class SentencesAbout : public testing::TestWithParam<TextRow> {};

TEST_P(SentencesAbout, Settings) {
  EXPECT_EQ(FoundInSettings(GetParam().input, Sentences), GetParam().expected);
}

// --- Lines and keys ----------------------------------------------------------------------------

const TextRow kLines[] = {
    {"ValidSettingsHaveNone", "; comment\n\n[General]\nport = 514 ; comment", ""},
    {"HashCommentIsFound", "\n # x", "hash-comment 2:2"},
    {"HashInAValueIsNone", "facility=3\nhost=a\nhost2=#", "unknown-key 3:1"},
    {"SectionAloneIsNone", "host=a\nallowed=a1\n[x]", ""},
    {"LineWithoutAKeyIsFound", " ab\ncd", "unknown-key 1:2|unknown-key 2:1"},
    {"MarkBeforeAKeyIsFound", "\xEF\xBB\xBFport=1", "byte-order-mark 1:1"},
    {"MarkBeforeACommentIsNone", "\xEF\xBB\xBF; x", ""},
    {"UnknownKeyIsFound", "ports2=1\nxyz=1", "unknown-key 1:1|unknown-key 2:1"},
    {"KnownKeyInASectionIsFound", "host=a\nallowed=a1\n[x]\nport=1\nxyz=1",
     "key-in-section 4:1|unknown-key 5:1"},
    {"RepeatedKeyIsFoundWhereItDoesNotHold", "port=1x\nport=2\nport=3",
     "repeated-key 1:1|repeated-key 2:1"}};

INSTANTIATE_TEST_SUITE_P(Lines, PlacesIn, testing::ValuesIn(kLines), OutcomeOf());

// --- Values ------------------------------------------------------------------------------------

const TextRow kValues[] = {
    {"CommaIsFound", "formatString= ab,\"c,d\"", "list-value 1:17"},
    {"CommaHidesEverythingElseInTheValue", "port=x\\z,1;", "list-value 1:9"},
    {"CommaInFrontIsFound", "formatString=,a", "list-value 1:14"},
    {"CommaHidesASemicolon", "formatString=a,b;c", "list-value 1:15"},
    {"CommaInDoubleQuotesIsNone", "formatString=\"a,b\"", ""},
    {"CutTemplateIsFoundAtTheSemicolon", "formatString=ab ; x", "cut-at-semicolon 1:17"},
    {"CutTemplateIsFoundThoughNothingFollows", "formatString=ab;", "cut-at-semicolon 1:16"},
    {"CutAllowedIsFound", "allowed=a1 ;", "cut-at-semicolon 1:12"},
    {"CutHostIsFoundWithoutABlank", "host=a;b", "cut-at-semicolon 1:7"},
    {"CommentBehindABlankIsNone", "host=a ;b", ""},
    {"LoneSemicolonBehindAHostIsNone", "host=a; ", ""},
    {"SemicolonBehindANumberIsNone", "port=1;2", ""},
    {"SemicolonBehindDoubleQuotesIsNone", "formatString=\"a\" ;x", ""},
    {"CutProtocolIsFound", "protocol=syslog-udp;x", "cut-at-semicolon 1:20"},
    {"SpecialValueIsFound", "formatString= @Invalid()", "special-value 1:15"},
    {"SpecialValueInDoubleQuotesIsFound", "formatString=\"@Invalid()\"", "special-value 1:14"},
    {"TwoAtSignsAreFound", "formatString=@@", "special-value 1:14"},
    {"AtSignAloneIsNone", "formatString=@\nfacility=2", ""},
    {"AtSignWithinIsNone", "formatString=x@Invalid()", ""},
    {"OpenQuoteBehindAnAtSignIsNone", "host=a\nallowed=a1\nformatString=x@Invalid()\"", ""},
    {"AtSignBeforeAnotherWordIsNone", "formatString=\"@Size\"", ""},
    {"Utf8IsFoundAtItsFirstByte", "formatString=aü", "not-latin1 1:15"},
    {"Latin1IsNone", "formatString=a\xFC", ""},
    {"Utf8BehindAByteOrderMarkIsNone", "\xEF\xBB\xBF;\nformatString=ü", ""},
    {"Utf8InANumberIsOnlyNoNumber", "port=ü", "not-a-number 1:6"},
    {"LastAsciiIsNone", "formatString=\x7f", ""}};

INSTANTIATE_TEST_SUITE_P(Values, PlacesIn, testing::ValuesIn(kValues), OutcomeOf());

// "\\", a letter and so on, in a template.
const TextRow kEscapes[] = {
    {"EscapedQuotesAndBackslashesAreNone", R"(formatString="\"\\")", ""},
    {"OneHexadecimalDigitIsNone", R"(formatString=\xaz)", ""},
    {"TwoHexadecimalDigitsAreNone", R"(formatString=\xFf)", ""},
    {"ThreeHexadecimalDigitsAreFound", R"(formatString=\xfc0)", "changed-by-escape 1:14"},
    {"FourHexadecimalDigitsAreNone", R"(formatString=\x20ac)", ""},
    {"FiveHexadecimalDigitsAreFound", R"(formatString=\x20ac0)", "changed-by-escape 1:14"},
    {"NoHexadecimalDigitIsFound", R"(formatString=\xg)", "changed-by-escape 1:14"},
    {"DigitsBehindClosedAndOpenedQuotesAreNone", R"(formatString="\xfc""0")", ""},
    {"FirstEscapeThatChangesIsFound", R"(formatString=a\\b\nc\t)", "changed-by-escape 1:18"},
    {"LetterBehindAnEscapedBackslashIsNone", R"(formatString=\\n)", ""},
    {"BackslashAtTheLastLineFeedIsNone", "host=a\nallowed=a1\nformatString=a\\", ""},
    {"JoinedLineWithoutAKeyIsNone", "formatString=a\\\nb", ""},
    {"JoinedLineWithAKeyIsFound", "formatString=a\\\nport=1", "changed-by-escape 1:15"},
    {"JoinedCarriageReturnWithAKeyIsFound", "formatString=a\\\rport=1", "changed-by-escape 1:15"},
    {"EscapeInANumberIsFoundToo", R"(port=1\2)", "not-a-number 1:6|changed-by-escape 1:7"}};

INSTANTIATE_TEST_SUITE_P(Escapes, PlacesIn, testing::ValuesIn(kEscapes), OutcomeOf());

const TextRow kQuotes[] = {
    {"QuotesAroundTheValueAreNone", "formatString=\"ab\" ", ""},
    {"QuoteWithinIsFound", "formatString=a\"b\"c", "changed-by-escape 1:15"},
    {"ClosedAndOpenedQuotesAreNone", "formatString=\"a\"\"b\"", ""},
    {"ClosedQuotesBeforeABlankAreFound", "formatString=\"a\" b", "changed-by-escape 1:16"},
    {"QuoteBehindClosedAndOpenedQuotesIsFound", "formatString=\"a\"\"b\"c",
     "changed-by-escape 1:19"},
    {"EscapedQuoteIsNone", "formatString=a\\\"b", ""},
    {"QuoteBehindAnEscapedBackslashIsFound", "formatString=a\\\\\"b\"c", "changed-by-escape 1:17"},
    {"TwoQuotesAtTheEndAreFound", "formatString=a\"\"", "changed-by-escape 1:15"},
    {"TwoQuotesAloneAreNone", "formatString=\"\"", ""}};

INSTANTIATE_TEST_SUITE_P(Quotes, PlacesIn, testing::ValuesIn(kQuotes), OutcomeOf());

// --- Numbers -----------------------------------------------------------------------------------

struct RangeRow : Row {
  int least;
  int most;
};

class RangeOf : public testing::TestWithParam<RangeRow> {};

TEST_P(RangeOf, Key) {
  const RangeRow &row = GetParam();
  const auto found = [&](int value) {
    return FoundInSettings(std::string(row.outcome) + "=" + std::to_string(value), Places);
  };
  const std::string isOut =
      "out-of-range 1:" + std::to_string(std::string_view(row.outcome).size() + 2);
  EXPECT_EQ(found(row.least - 1), isOut);
  EXPECT_EQ(found(row.least), "");
  EXPECT_EQ(found(row.most), "");
  EXPECT_EQ(found(row.most + 1), isOut);
}

const RangeRow kRanges[] = {{"facility", 0, 23},
                            {"port", 1, 65535},
                            {"cpuThreshold", 0, 99},
                            {"memThreshold", 0, 99},
                            {"diskThreshold", 0, 99}};

INSTANTIATE_TEST_SUITE_P(Rows, RangeOf, testing::ValuesIn(kRanges), OutcomeOf());

class Number : public testing::TestWithParam<Row> {};

TEST_P(Number, IsCheckedWhereItHolds) {
  const std::string key = GetParam().outcome;
  EXPECT_EQ(FoundInSettings("\n" + key + "= 1x", Places),
            "not-a-number 2:" + std::to_string(key.size() + 3));
  EXPECT_EQ(FoundInSettings(key + "=1x\n" + key + "= 1 ", Places), "repeated-key 1:1");
}

const Row kNumbers[] = {
    {"facility"}, {"port"}, {"cpuThreshold"}, {"memThreshold"}, {"diskThreshold"}};

INSTANTIATE_TEST_SUITE_P(Rows, Number, testing::ValuesIn(kNumbers), OutcomeOf());

TEST(SwitchTest, TakesAnyNumberAndNothingElse) {
  for (const std::string key : {"usbDevMon", "vmwSigninMon", "agentConnMon", "perfMon"}) {
    for (const std::string value : {"0", "-1", "-2147483647", "2147483647"}) {
      std::string file = "allowed=a1 perf01 sys05 sec03 net02\n";
      file.append(key).append("=").append(value);
      EXPECT_EQ(FoundInSettings(file,
                                [](const Findings &findings) {
                                  return std::to_string(findings.Has("out-of-range") ||
                                                        findings.Has("not-a-number"));
                                }),
                "0")
          << key << value;
    }
    EXPECT_EQ(FoundInSettings(key + "=on", Places),
              "not-a-number 1:" + std::to_string(key.size() + 2));
  }
}

// --- Collectors --------------------------------------------------------------------------------

const std::string kLabel(63, 'x');
const std::string kName = kLabel + "." + kLabel + "." + kLabel + ".";  // 192 characters

struct HostRow : Row {
  std::string host;
  bool isFound;
};

class Host : public testing::TestWithParam<HostRow> {};

TEST_P(Host, IsChecked) {
  EXPECT_EQ(FoundInSettings("host=" + GetParam().host, Places),
            GetParam().isFound ? "host-not-ipv4 1:6" : "");
}

const HostRow kHosts[] = {{"AddressOfFourNumbersIsOne", "255.255.255.255", false},
                          {"AddressOfTwoNumbersIsOne", "127.1", false},
                          {"AddressOfOneNumberIsOne", "1", false},
                          {"NumberAbove255IsNone", "1.2.3.256", true},
                          {"FiveNumbersAreNone", "1.2.3.4.5", true},
                          {"DotAtTheEndOfAnAddressMakesNone", "1.2.3.4.", true},
                          {"DotAloneIsNone", ".", true},
                          {"LettersDigitsDashesAndUnderscoresAreAName", "aZ-_09", false},
                          {"NameMayHaveDots", "a.b.c", false},
                          {"NameMayEndWithADot", "a.", false},
                          {"TwoDotsAreNone", "a..b", true},
                          {"DotInFrontIsNone", ".a", true},
                          {"TwoDotsAtTheEndAreNone", "a..", true},
                          {"LabelOf63CharactersIsOne", "x." + kLabel, false},
                          {"LabelOf64CharactersIsNone", "x." + kLabel + "x", true},
                          {"FirstLabelOf64CharactersIsNone", kLabel + "x", true},
                          {"NameOf254CharactersIsOne", kName + kLabel.substr(1), false},
                          {"NameOf255CharactersIsNone", kName + kLabel, true},
                          {"PortMakesNone", "a:1", true},
                          {"BlankMakesNone", "a b", true},
                          {"Ipv6AddressIsNone", "::1", true},
                          {"CharacterBeyondAsciiIsNone", "\\xfc", true}};

INSTANTIATE_TEST_SUITE_P(Rows, Host, testing::ValuesIn(kHosts), OutcomeOf());

const TextRow kCollectors[] = {
    {"EmptyHostIsFound", "host= ", "no-host 1:7"},
    {"MissingHostIsFoundInTheWholeFile", "facility=1\nallowed=a1\n;host", "no-host 0:0"},
    {"UdpIsAProtocol", "protocol=syslog-udp", ""},
    {"TcpIsAProtocol", "protocol=\"syslog-tcp\"", ""},
    {"OtherProtocolIsFound", "protocol= tcp", "unknown-protocol 1:11"},
    {"EmptyProtocolIsFound", "protocol=", "unknown-protocol 1:10"}};

INSTANTIATE_TEST_SUITE_P(Collectors, PlacesIn, testing::ValuesIn(kCollectors), OutcomeOf());

// --- Sentences ---------------------------------------------------------------------------------

const TextRow kSettingsSentences[] = {
    {"UnknownKeyNamesTheOneThatIsMeant", "Port=1",
     "unknown-key: the service does not know the key `Port` and ignores it. Write `port` <>"},
    {"UnknownKeyMayMeanNone", "xyz=1",
     "unknown-key: the service does not know the key `xyz` and ignores it <>"},
    {"UnknownKeyOfAMonitorTouchesItsEvents", "perfmon=1",
     "unknown-key: the service does not know the key `perfmon` and ignores it. Write `perfMon` "
     "<perf01 perf02 perf03>"},
    {"KeyInASectionNamesTheSection", "host=a\nallowed=a1\n[x%09]\nCPUThreshold=1",
     "key-in-section: the service looks for `cpuThreshold` outside any section and does not see it "
     "in [x\\t]. Move the line above the first section, or under [General] <perf01>"},
    {"RepeatedKeyNamesTheLineThatHolds", "memThreshold=1\nmemThreshold=2",
     "repeated-key: line 2 sets `memThreshold` once more, and the last line holds. Remove one of "
     "them <perf02>"},
    {"ListInATextIsEmpty", "formatString=a,b",
     "list-value: the service reads an empty text, since an unquoted comma makes a list: put the "
     "value in double quotes <>"},
    {"ListOfIdentifiersIsEmpty", "allowed=a1,b1",
     "list-value: the service reads an empty text, since an unquoted comma makes a list: put the "
     "value in double quotes, with blanks between the identifiers <>"},
    {"ListOfNumbersKeepsTheValueFromBefore", "diskThreshold=1,2",
     "list-value: the service reads no number, since an unquoted comma makes a list, and "
     "`diskThreshold` keeps the value from before: write one number <perf03>"},
    {"CutValueNamesItsKey", "formatString=a;b",
     "cut-at-semicolon: the value of `formatString` ends here, since an unquoted semicolon begins "
     "a comment: put the value in double quotes <>"},
    {"LetterBehindABackslashIsAControlCharacter", "formatString=a\\a",
     "changed-by-escape: the service reads \\a as a control character: write \\\\a if the "
     "backslash is meant <>"},
    {"DigitBehindABackslashIsAControlCharacter", "formatString=a\\7",
     "changed-by-escape: the service reads \\7 as a control character: write \\\\7 if the "
     "backslash is meant <>"},
    {"OtherLetterBehindABackslashIsNothing", "formatString=a\\8",
     "changed-by-escape: the service reads nothing for \\8: write \\\\8 if the backslash is meant "
     "<>"},
    {"HexadecimalDigitsAreOneCharacter", "formatString=\\x123",
     "changed-by-escape: the service takes all hexadecimal digits behind \\x for the number of one "
     "character: close and open the double quotes behind those that are meant <>"},
    {"JoinedLineLosesItsKey", "formatString=a\\\nport=1",
     "changed-by-escape: a backslash at the end of a line joins the next line to it, whose key is "
     "lost: remove the backslash, or write two <>"},
    {"LineJoinedByACarriageReturnLosesItsKey", "formatString=a\\\rport=1",
     "changed-by-escape: a backslash at the end of a line joins the next line to it, whose key is "
     "lost: remove the backslash, or write two <>"},
    {"InnerQuoteIsLost", "formatString=a\"b\"c",
     "changed-by-escape: the service reads \"abc\", since a double quote within a value is lost: "
     "write \\\" for one that is meant, and the whole value in double quotes <>"},
    {"SpecialValueIsReadAsAnother", "formatString=@@a",
     "special-value: the value has a form that the reader of the file keeps for itself, and the "
     "service reads \"@a\" instead. Begin it with another character than \"@\" <>"},
    {"Utf8GoesOutAsItIsRead", "formatString=ü",
     "not-latin1: the service reads each byte above 127 as a character of its own, and \"Ã¼\" goes "
     "out. Write each such character as \\x and its number, as in \\xfc, and close and open the "
     "double quotes before a digit or a letter from a to f <>"},
    {"SwitchIsOneOrZero", "perfMon=on",
     "not-a-number: \"on\" is no decimal number, and `perfMon` keeps the value from before. Write "
     "1 for on or 0 for off <perf01 perf02 perf03>"},
    {"NumberIsDigitsAlone", "port=1x",
     "not-a-number: \"1x\" is no decimal number, and `port` keeps the value from before. Write "
     "digits alone <>"},
    {"FacilityChangesThePriority", "facility=24",
     "out-of-range: 24 is outside 0 to 23, which is what `facility` may be: the priority of every "
     "line is wrong <>"},
    {"PortIsAnother", "port=0",
     "out-of-range: 0 is outside 1 to 65535, which is what `port` may be: the service sends to a "
     "port of other digits, or to none <>"},
    {"CpuThresholdTouchesItsEvent", "cpuThreshold=100",
     "out-of-range: 100 is outside 0 to 99, which is what `cpuThreshold` may be: the event comes "
     "at every reading or never, or ends the service <perf01>"},
    {"MemThresholdTouchesItsEvent", "memThreshold=100",
     "out-of-range: 100 is outside 0 to 99, which is what `memThreshold` may be: the event comes "
     "at every reading or never, or ends the service <perf02>"},
    {"DiskThresholdTouchesItsEvent", "diskThreshold=-1",
     "out-of-range: -1 is outside 0 to 99, which is what `diskThreshold` may be: the event comes "
     "at every reading or never, or ends the service <perf03>"},
    {"ProtocolIsQuoted", "protocol=a\\nb\n",
     "unknown-protocol: the service does not know the protocol \"a\\nb\" and uses UDP. Write "
     "syslog-udp or syslog-tcp <>|changed-by-escape: the service reads \\n as a control character: "
     "write \\\\n if the backslash is meant <>"},
    {"EmptyHostLosesEveryLine", "host=",
     "no-host: `host` is empty: the service has no collector and every line is lost. Write the "
     "collector's IPv4 address or name <>"},
    {"HostIsQuoted", "host=a:1",
     "host-not-ipv4: \"a:1\" is neither an IPv4 address nor a name, and every line is lost. Write "
     "the address or the name alone, and the port as `port` <>"},
    {"MarkBelongsToTheKey",
     "\xEF\xBB\xBF"
     "port=1",
     "byte-order-mark: the file begins with a byte order mark: the service takes it for a part of "
     "the first line, whose key is lost. Save the file without it <>"},
    {"HashIsNoComment", "#",
     "hash-comment: a comment begins with \";\": the service reads this line as a key or passes "
     "over it, and a double quote in it swallows the lines behind it <>"},
    {"LineWithoutAKeyIsPassedOver", "x",
     "unknown-key: the service passes over this line, since it has no \"=\". A comment begins with "
     "\";\" <>"}};

INSTANTIATE_TEST_SUITE_P(Rows, SentencesAbout, testing::ValuesIn(kSettingsSentences), OutcomeOf());

// --- Files and keys ----------------------------------------------------------------------------

TEST(CheckSettingsTest, MissingFileIsTheOnlyFinding) {
  Findings findings;
  CheckSettings(SettingsFile(Q("/tmp/missing")), DefinitionsWith(""), findings);
  EXPECT_EQ(Places(findings), "no-settings 0:0");
  EXPECT_EQ(findings.Sorted()[0].place.file.toStdString(), "/tmp/missing");
}

TEST(CheckSettingsTest, FourKeysHaveTexts) {
  QStringList texts = SettingsKeys();
  texts.erase(std::remove_if(texts.begin(), texts.end(),
                             [](const QString &key) { return !IsTextKey(key); }),
              texts.end());
  EXPECT_EQ(texts.join(QLatin1Char(' ')).toStdString(), "formatString allowed protocol host");
  EXPECT_FALSE(IsTextKey({}));
}

}  // namespace
}  // namespace ov
