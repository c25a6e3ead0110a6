#include "config/settings.h"

#include "support/support.h"

namespace ov {
namespace {

Output Parse(Settings &settings) {
  return OutputOf([&] { settings.parseSettings(); });
}

Output Parse(Settings &settings, std::string_view contents) {
  WriteSettings(contents);
  return Parse(settings);
}

// The lines in alphabetical order.
std::string Sorted(const std::string &text) {
  QStringList lines = QString::fromStdString(text).split(QLatin1Char('\n'), Qt::SkipEmptyParts);
  lines.sort();
  return lines.join(QLatin1Char('|')).toStdString();
}

// The values of the keys, read by the accessors.
std::string Port(const Settings &settings) { return std::to_string(settings.port()); }

std::string Numbers(const Settings &settings) {
  std::string numbers;
  for (const std::int32_t number : {settings.facility(), settings.port(), settings.cpuThreshold(),
                                    settings.memThreshold(), settings.diskThreshold()}) {
    numbers += std::to_string(number) + " ";
  }
  return numbers;
}

std::string Monitors(const Settings &settings) {
  return std::string(settings.usbDevMon() ? "usb " : "") +
         (settings.vmwSigninMon() ? "signin " : "") + (settings.agentConnMon() ? "agent " : "") +
         (settings.perfMon() ? "perf " : "");
}

std::string Texts(const Settings &settings) {
  return std::string(settings.protocol() == Protocol::kTcp ? "tcp|" : "udp|") +
         settings.host().toStdString() + "|" + settings.formatString().toStdString();
}

std::string Allowed(const Settings &settings) {
  std::string allowed;
  for (const char *id : {"", "perf01", "sys05", "sys06", "perf01,sys05", "perf01\tsys05",
                         "perf01 sys05", "PERF01", "perf0", "perf011", " perf01", "\xFC", "ü"}) {
    allowed += settings.isAllowed(id) ? std::string(id) + "|" : "";
  }
  return allowed;
}

std::string All(const Settings &settings) {
  return Numbers(settings) + Monitors(settings) + Texts(settings) + "|" + Allowed(settings);
}

constexpr char kDefaults[] =
    "3 514 80 80 80 udp||<[PRI]> [DATE] [NAME]([IP]): [ID] [DESC] - [VAL] ([SEV])|";

struct SettingsRow : Row {
  std::vector<std::string> files;  // parsed one after the other
  std::string (*values)(const Settings &);
  std::string expected;
};

class SettingsOf : public testing::TestWithParam<SettingsRow> {};

TEST_P(SettingsOf, Files) {
  Settings settings;
  for (const std::string &file : GetParam().files) {
    EXPECT_EQ(Parse(settings, file).err, "");
  }
  EXPECT_EQ(GetParam().values(settings), GetParam().expected);
}

const SettingsRow kRows[] = {
    {"EveryKeyHasItsDefault", {""}, All, kDefaults},
    {"EveryKeyHasItsField",
     {"facility=1\nport=2\ncpuThreshold=3\nmemThreshold=4\ndiskThreshold=5\n"
      "protocol=syslog-tcp\nhost=x\nformatString=[ID]\nallowed=sys05\n"
      "usbDevMon=1\nvmwSigninMon=1\nagentConnMon=1\nperfMon=1"},
     All,
     "1 2 3 4 5 usb signin agent perf tcp|x|[ID]|sys05|"},
    {"RemovedKeysKeepTheirValues",
     {"port=7\nprotocol=syslog-tcp\nhost=x\nformatString=[ID]\nallowed=sys05\nperfMon=1",
      "facility=1"},
     All,
     "1 7 80 80 80 perf tcp|x|[ID]|sys05|"},
    {"KeysInASectionHaveNoEffect",
     {"[syslog]\nport=7\nprotocol=syslog-tcp\nhost=x\nformatString=[ID]\nallowed=x\nperfMon=1"},
     All,
     kDefaults},
    {"KeysAreCaseSensitive", {"Host=x\nPORT=7\nAllowed=sys05\nPerfMon=1"}, All, kDefaults},
    {"KeysInTheGeneralSectionHaveEffect", {"[General]\nport=7"}, Port, "7"},
    {"DecimalIntegerIsTaken", {"port=42"}, Port, "42"},
    {"NumberIsNotRangeChecked", {"port=70000"}, Port, "70000"},
    {"NegativeNumberIsTaken", {"port=-7"}, Port, "-7"},
    {"LargestNumberIsTaken", {"port=2147483647"}, Port, "2147483647"},
    {"SmallestNumberIsTaken", {"port=-2147483648"}, Port, "-2147483648"},
    {"BlanksAroundANumberDoNotCount", {"port= 42 "}, Port, "42"},
    {"QuotedBlanksAroundANumberDoNotCount", {"port=\" 42 \""}, Port, "42"},
    {"LeadingZerosAreDecimal", {"port=0042"}, Port, "42"},
    {"EmptyTextIsNoNumber", {"port=7", "port="}, Port, "7"},
    {"WordIsNoNumber", {"port=7", "port=abc"}, Port, "7"},
    {"HexadecimalIsNoNumber", {"port=7", "port=0x10"}, Port, "7"},
    {"FractionIsNoNumber", {"port=7", "port=42.0"}, Port, "7"},
    {"ListIsNoNumber", {"port=7", "port=1,2"}, Port, "7"},
    {"LetterBehindMakesItNoNumber", {"port=7", "port=42x"}, Port, "7"},
    {"OneMoreThanTheLargestIsNoNumber", {"port=7", "port=2147483648"}, Port, "7"},
    {"OneLessThanTheSmallestIsNoNumber", {"port=7", "port=-2147483649"}, Port, "7"},
    {"UsbSwitchIsOnAboveZero", {"usbDevMon=2"}, Monitors, "usb "},
    {"SigninSwitchIsOnAboveZero", {"vmwSigninMon=1"}, Monitors, "signin "},
    {"AgentSwitchIsOnAboveZero", {"agentConnMon=1"}, Monitors, "agent "},
    {"ZeroSwitchesOff", {"usbDevMon=1", "usbDevMon=0"}, Monitors, ""},
    {"NegativeNumbersAreOff",
     {"usbDevMon=-1\nvmwSigninMon=-1\nagentConnMon=-1\nperfMon=-1"},
     Monitors,
     ""},
    {"WordTrueIsNotOn", {"usbDevMon=true"}, Monitors, ""},
    {"WordFalseIsNotOff", {"usbDevMon=1", "usbDevMon=false"}, Monitors, "usb "},
    {"TextIsTakenAsWritten", {"formatString=<[PRI]> [ID]: x"}, Texts, "udp||<[PRI]> [ID]: x"},
    {"QuotedBlanksAndCommasAreKept", {"formatString=\" a, b \""}, Texts, "udp|| a, b "},
    {"UnquotedCommaMakesAListAndSoAnEmptyText", {"formatString=a, b"}, Texts, "udp||"},
    {"TextMayBeEmpty", {"formatString="}, Texts, "udp||"},
    {"HostIsNotTrimmed", {"formatString=\nhost=\" x \""}, Texts, "udp| x |"},
    {"UdpReplacesTcp",
     {"formatString=\nprotocol=syslog-tcp", "protocol=syslog-udp"},
     Texts,
     "udp||"},
    {"TcpInCapitalsIsUdp",
     {"formatString=\nprotocol=syslog-tcp", "protocol=SYSLOG-TCP"},
     Texts,
     "udp||"},
    {"ShortNameOfTcpIsUdp", {"formatString=\nprotocol=syslog-tcp", "protocol=tcp"}, Texts, "udp||"},
    {"EmptyProtocolIsUdp", {"formatString=\nprotocol=syslog-tcp", "protocol="}, Texts, "udp||"},
    {"AllowedEventsSplitAtBlanks", {"allowed=perf01 sys05"}, Allowed, "perf01|sys05|"},
    {"AllowedEventsSplitAtBlanksNotCommas", {"allowed=perf01,sys05"}, Allowed, "|"},
    {"AllowedEventsDoNotSplitAtQuotedCommas",
     {"allowed=\"perf01,sys05\""},
     Allowed,
     "perf01,sys05|"},
    {"AllowedEventsDoNotSplitAtTabs", {"allowed=\"perf01\\tsys05\""}, Allowed, "perf01\tsys05|"},
    {"AllowedEventsAreTrimmed", {"allowed=\"\\tperf01\\t \\nsys05\\n\""}, Allowed, "perf01|sys05|"},
    {"DoubleBlankAllowsTheEmptyIdentifier", {"allowed=perf01  sys05"}, Allowed, "|perf01|sys05|"},
    {"EmptyKeyAllowsTheEmptyIdentifierOnly", {"allowed=perf01", "allowed="}, Allowed, "|"},
    {"AllowedEventsAreCaseSensitiveAndWhole", {"allowed=perf01"}, Allowed, "perf01|"},
    {"IdentifierIsReadAsLatin1", {"allowed=\"\\xfc\""}, Allowed, "\xFC|"},
    {"NewAllowedEventsReplaceTheOld",
     {"allowed=perf01 sys05", "allowed=sys06 sys05"},
     Allowed,
     "sys05|sys06|"}};

INSTANTIATE_TEST_SUITE_P(Rows, SettingsOf, testing::ValuesIn(kRows), OutcomeOf());

TEST(SettingsTest, MissingFileOrFolderChangesNoValue) {
  Settings settings;
  EXPECT_EQ(Parse(settings), (Output{"", ""}));
  EXPECT_EQ(All(settings), kDefaults);
  Parse(settings, "host=x\nport=9\nallowed=perf01\nusbDevMon=1\n");
  const std::string before = All(settings);
  std::filesystem::remove(kSettingsPath);
  EXPECT_EQ(Parse(settings), (Output{"", ""}));
  std::filesystem::create_directory(kSettingsPath);
  EXPECT_EQ(Parse(settings), (Output{"", ""}));
  EXPECT_EQ(All(settings), before);
}

// --- Reading and printing ----------------------------------------------------------------------

class SettingsFile : public testing::TestWithParam<TextRow> {};

TEST_P(SettingsFile, IsPrinted) {
  Settings settings;
  Parse(settings, "host=before\n");
  const Output output = Parse(settings, GetParam().input);
  EXPECT_EQ(output.err, "");
  EXPECT_EQ(Sorted(output.out), GetParam().expected);
  EXPECT_EQ(ReadFile(kSettingsPath), GetParam().input);  // left as it is
}

const TextRow kSettingsFileRows[] = {
    {"EveryEntryIsPrintedWhetherKnownOrNot", "port=0514\nnonsense = a b \n[syslog]\nport=x\n",
     "nonsense: a b|port: 0514|syslog/port: x"},
    {"EntriesArePrintedAsUtf8", "host=\"\\xfc\"\n", "host: ü"},
    {"EmptyValueIsPrinted", "host=\n", "host: "},
    {"PercentSignsArePrintedAsTheyAre", "host=100%s", "host: 100%s"},
    {"LinesWithASemicolonInFrontAreNoEntries", "; port=1\n;port=2\nport=3\n", "port: 3"},
    {"CarriageReturnsBelongToTheLineEnds", "port=1\r\n", "port: 1"},
    {"ListIsPrintedEmpty", "y=1,2\n", "y: "}};

INSTANTIATE_TEST_SUITE_P(Rows, SettingsFile, testing::ValuesIn(kSettingsFileRows), OutcomeOf());

TEST(SettingsTest, DumpPrintsTheEntriesLastParsed) {
  Settings settings;
  Parse(settings, "port=1\n");
  WriteSettings("port=2\n");
  EXPECT_EQ(OutputOf([&] { settings.dumpSettings(); }), (Output{"port: 1\n", ""}));
}

// --- The check for changes ---------------------------------------------------------------------

class SettingsContents : public testing::TestWithParam<TextRow> {};

TEST_P(SettingsContents, AreCompared) {
  const std::vector<std::string> files = Parts(GetParam().input);
  Settings settings;
  Parse(settings, files[0]);
  EXPECT_FALSE(settings.settingsChanged());
  WriteSettings(files[1]);
  const auto check = [&] {
    EXPECT_EQ(settings.settingsChanged(), GetParam().expected == "change");
  };
  EXPECT_EQ(OutputOf(check), (Output{"", ""}));
  EXPECT_FALSE(settings.settingsChanged()) << "reported twice";
}

const TextRow kContents[] = {
    {"TouchedFileIsNoChange", "port=1|port=1", "none"},
    {"ChangedValueIsAChange", "port=1|port=2", "change"},
    {"AddedKeyIsAChange", "port=1|port=1\nhost=x", "change"},
    {"RemovedKeyIsAChange", "port=1\nhost=x|port=1", "change"},
    {"RenamedKeyIsAChange", "port=1|perfMon=1", "change"},
    {"UnknownKeyCountsToo", "nonsense=1|nonsense=2", "change"},
    {"OrderAndCommentsAreNoChange", "port=1\nhost=x|; a comment\nhost = x\nport = 1", "none"}};

INSTANTIATE_TEST_SUITE_P(Rows, SettingsContents, testing::ValuesIn(kContents), OutcomeOf());

// With the file's modification time known to the settings.
class SettingsTimeTest : public testing::Test {
 protected:
  static constexpr std::int64_t kTime = 1'500'000'000;

  SettingsTimeTest() {
    WriteAt("port=1\n", kTime);
    Parse(settings_);
    EXPECT_FALSE(settings_.settingsChanged());
  }

  static void WriteAt(std::string_view contents, std::int64_t seconds, long nanoseconds = 0) {
    WriteFile(kSettingsPath, contents);
    SetModificationTime(kSettingsPath, seconds, nanoseconds);
  }

  Settings settings_;
};

TEST_F(SettingsTimeTest, ChangeWithinTheSecondSeenIsNoticedOnceTheTimeMoves) {
  WriteAt("port=22\n", kTime, 999'999'999);
  EXPECT_FALSE(settings_.settingsChanged());
  SetModificationTime(kSettingsPath, kTime - 1);  // an earlier time counts too
  EXPECT_TRUE(settings_.settingsChanged());
  EXPECT_EQ(settings_.port(), 1);  // the check applies nothing
}

TEST_F(SettingsTimeTest, TouchMovesTheTimeThatIsRemembered) {
  SetModificationTime(kSettingsPath, kTime + 1000);
  EXPECT_FALSE(settings_.settingsChanged());
  WriteAt("port=22\n", kTime + 1000);
  EXPECT_FALSE(settings_.settingsChanged());
}

TEST_F(SettingsTimeTest, ParsingDoesNotMoveTheTimeThatIsRemembered) {
  WriteAt("port=22\n", kTime + 5);
  Parse(settings_);
  WriteAt("port=333\n", kTime);
  EXPECT_FALSE(settings_.settingsChanged());
}

TEST_F(SettingsTimeTest, MissingFileIsNoChangeAndItsReturnIsOne) {
  std::filesystem::remove(kSettingsPath);
  EXPECT_FALSE(settings_.settingsChanged());
  Parse(settings_);
  WriteSettings("port=3\n");
  EXPECT_TRUE(settings_.settingsChanged());
}

TEST_F(SettingsTimeTest, ParsedChangeIsNoChangeAnyMore) {
  Parse(settings_, "port=2\n");
  EXPECT_FALSE(settings_.settingsChanged());
}

}  // namespace
}  // namespace ov
