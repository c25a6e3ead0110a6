#include "config/settings.h"

#include <algorithm>
#include <cstdio>
#include <sstream>

#include "support/support.h"

namespace ov {
namespace {

using Files = std::vector<std::string>;

Output Parse(Settings &settings) {
  return OutputOf([&] { settings.parseSettings(); });
}

Output Parse(Settings &settings, std::string_view contents) {
  WriteSettings(contents);
  return Parse(settings);
}

std::string SortedLines(const std::string &text) {
  std::istringstream stream(text);
  std::vector<std::string> lines;
  for (std::string line; std::getline(stream, line);) {
    lines.push_back(line + "\n");
  }
  std::sort(lines.begin(), lines.end());
  std::string sorted;
  for (const std::string &line : lines) {
    sorted += line;
  }
  return sorted;
}

std::string Number(std::int32_t value) { return std::to_string(value) + " "; }

// Facility, port and the three thresholds.
std::string NumbersOf(const Settings &settings) {
  return Number(settings.facility()) + Number(settings.port()) + Number(settings.cpuThreshold()) +
         Number(settings.memThreshold()) + Number(settings.diskThreshold());
}

// The switches of the monitors that are on.
std::string MonitorsOf(const Settings &settings) {
  return std::string(settings.usbDevMon() ? "usb " : "") +
         (settings.vmwSigninMon() ? "signin " : "") + (settings.agentConnMon() ? "agent " : "") +
         (settings.perfMon() ? "perf " : "");
}

std::string All(const Settings &settings) {
  return NumbersOf(settings) + MonitorsOf(settings) +
         (settings.protocol() == Protocol::kTcp ? "tcp" : "udp") + "|" +
         settings.host().toStdString() + "|" + settings.formatString().toStdString();
}

constexpr char kDefaults[] =
    "3 514 80 80 80 udp||<[PRI]> [DATE] [NAME]([IP]): [ID] [DESC] - [VAL] ([SEV])";

TEST(SettingsTest, EveryKeyHasItsFieldAndItsDefault) {
  Settings settings;
  EXPECT_EQ(Parse(settings), (Output{"", ""}));
  EXPECT_EQ(All(settings), kDefaults);
  Parse(settings,
        "facility=1\nport=2\ncpuThreshold=3\nmemThreshold=4\ndiskThreshold=5\n"
        "protocol=syslog-tcp\nhost=collector\nformatString=[ID]\n"
        "usbDevMon=1\nvmwSigninMon=1\nagentConnMon=1\nperfMon=1\n");
  EXPECT_EQ(All(settings), "1 2 3 4 5 usb signin agent perf tcp|collector|[ID]");
  for (const auto &[key, name] : {std::pair("usbDevMon", "usb "),
                                  {"vmwSigninMon", "signin "},
                                  {"agentConnMon", "agent "},
                                  {"perfMon", "perf "}}) {
    Settings single;
    Parse(single, std::string(key) + "=1\n");
    EXPECT_EQ(MonitorsOf(single), name);
  }
}

// --- Numbers and switches ----------------------------------------------------------------------

struct NumberRow : Row {
  std::string text;
  std::int64_t value;  // 7 is the value before
};

class SettingsNumber : public testing::TestWithParam<NumberRow> {};

TEST_P(SettingsNumber, IsRead) {
  const auto file = [](const std::string &text) {
    std::string contents;
    for (const char *key : {"facility", "port", "cpuThreshold", "memThreshold", "diskThreshold"}) {
      contents += std::string(key) + "=" + text + "\n";
    }
    return contents;
  };
  Settings settings;
  Parse(settings, file("7"));
  EXPECT_EQ(Parse(settings, file(GetParam().text)).err, "");
  std::string expected;
  for (int key = 0; key < 5; ++key) {
    expected += std::to_string(GetParam().value) + " ";
  }
  EXPECT_EQ(NumbersOf(settings), expected);
}

const NumberRow kSettingsNumberRows[] = {{"DecimalIntegerIsTaken", "42", 42},
                                         {"NumberIsNotRangeChecked", "70000", 70000},
                                         {"NegativeNumberIsTaken", "-7", -7},
                                         {"LargestNumberIsTaken", "2147483647", 2147483647},
                                         {"SmallestNumberIsTaken", "-2147483648", -2147483648LL},
                                         {"BlanksAroundANumberDoNotCount", " 42 ", 42},
                                         {"QuotedBlanksAroundANumberDoNotCount", "\" 42 \"", 42},
                                         {"LeadingZerosAreDecimal", "0042", 42},
                                         {"EmptyTextIsNoNumber", "", 7},
                                         {"WordIsNoNumber", "abc", 7},
                                         {"TruthValueIsNoNumber", "true", 7},
                                         {"HexadecimalIsNoNumber", "0x10", 7},
                                         {"ExponentIsNoNumber", "1e3", 7},
                                         {"FractionIsNoNumber", "42.0", 7},
                                         {"TwoNumbersAreNoNumber", "4 2", 7},
                                         {"ListIsNoNumber", "1,2", 7},
                                         {"LetterBehindMakesItNoNumber", "42x", 7},
                                         {"TwoSignsAreNoNumber", "--1", 7},
                                         {"OneMoreThanTheLargestIsNoNumber", "2147483648", 7},
                                         {"OneLessThanTheSmallestIsNoNumber", "-2147483649", 7}};

INSTANTIATE_TEST_SUITE_P(Rows, SettingsNumber, testing::ValuesIn(kSettingsNumberRows),
                         OutcomeOf<NumberRow>);

struct SwitchRow : Row {
  Files values;
  bool isOn;
};

class SettingsSwitch : public testing::TestWithParam<SwitchRow> {};

TEST_P(SettingsSwitch, IsOnAboveZero) {
  Settings settings;
  for (const std::string &value : GetParam().values) {
    std::string contents;
    for (const char *key : {"usbDevMon", "vmwSigninMon", "agentConnMon", "perfMon"}) {
      contents += std::string(key) + "=" + value + "\n";
    }
    Parse(settings, contents);
  }
  EXPECT_EQ(MonitorsOf(settings), GetParam().isOn ? "usb signin agent perf " : "");
}

const SwitchRow kSettingsSwitchRows[] = {{"LargerNumberIsOn", {"2"}, true},
                                         {"ZeroIsOff", {"1", "0"}, false},
                                         {"NegativeNumberIsOff", {"1", "-1"}, false},
                                         {"WordTrueIsNotOn", {"true"}, false},
                                         {"WordFalseIsNotOff", {"1", "false"}, true}};

INSTANTIATE_TEST_SUITE_P(Rows, SettingsSwitch, testing::ValuesIn(kSettingsSwitchRows),
                         OutcomeOf<SwitchRow>);

// --- Texts, the protocol, and what a key keeps -------------------------------------------------

struct TextRow : Row {
  Files files;
  std::string end;  // of all values: protocol, host, template
};

class SettingsText : public testing::TestWithParam<TextRow> {};

TEST_P(SettingsText, IsRead) {
  Settings settings;
  Parse(settings, "formatString=[ID]\n");
  for (const std::string &file : GetParam().files) {
    Parse(settings, file);
  }
  EXPECT_EQ(All(settings), "3 514 80 80 80 " + GetParam().end);
}

const TextRow kSettingsTextRows[] = {
    {"TextIsTakenAsWritten", {"formatString=<[PRI]> [ID]: x"}, "udp||<[PRI]> [ID]: x"},
    {"QuotedBlanksAndCommasAreKept", {"formatString=\" a, b \""}, "udp|| a, b "},
    {"UnquotedCommaMakesAListAndSoAnEmptyText", {"formatString=a, b"}, "udp||"},
    {"TextMayBeEmpty", {"formatString="}, "udp||"},
    {"HostIsNotTrimmed", {"host=\" x \""}, "udp| x |[ID]"},
    {"TcpIsChosenByItsName", {"protocol=syslog-tcp"}, "tcp||[ID]"},
    {"UdpReplacesTcp", {"protocol=syslog-tcp", "protocol=syslog-udp"}, "udp||[ID]"},
    {"NameInCapitalsIsUdp", {"protocol=syslog-tcp", "protocol=SYSLOG-TCP"}, "udp||[ID]"},
    {"ShortNameIsUdp", {"protocol=syslog-tcp", "protocol=tcp"}, "udp||[ID]"},
    {"EmptyNameIsUdp", {"protocol=syslog-tcp", "protocol="}, "udp||[ID]"},
    {"NameWithABlankIsUdp", {"protocol=syslog-tcp", "protocol=\"syslog-tcp \""}, "udp||[ID]"},
    {"RemovedKeysKeepTheirValues",
     {"protocol=syslog-tcp\nhost=x\nport=514", "perfMon=0"},
     "tcp|x|[ID]"},
    {"KeysInASectionHaveNoEffect",
     {"[syslog]\nprotocol=syslog-tcp\nhost=x\nformatString=y\nport=9\nperfMon=1"},
     "udp||[ID]"},
    {"KeysInTheGeneralSectionHaveEffect", {"[General]\nhost=x"}, "udp|x|[ID]"},
    {"KeysAreCaseSensitive", {"Host=x\nPORT=9\nPerfMon=1"}, "udp||[ID]"}};

INSTANTIATE_TEST_SUITE_P(Rows, SettingsText, testing::ValuesIn(kSettingsTextRows),
                         OutcomeOf<TextRow>);

TEST(SettingsTest, RemovedFileKeepsEveryValue) {
  Settings settings;
  Parse(settings, "host=x\nport=9\nallowed=perf01\nusbDevMon=1\n");
  const std::string before = All(settings);
  std::filesystem::remove(kSettingsPath);
  EXPECT_EQ(Parse(settings), (Output{"", ""}));
  EXPECT_EQ(All(settings), before);
  EXPECT_TRUE(settings.isAllowed("perf01"));
}

// --- Allowed events ----------------------------------------------------------------------------

struct AllowedRow : Row {
  Files files;
  std::string allowed;  // of the identifiers below, each with a bar behind it
};

class SettingsAllowed : public testing::TestWithParam<AllowedRow> {};

TEST_P(SettingsAllowed, Events) {
  Settings settings;
  for (const std::string &file : GetParam().files) {
    Parse(settings, file);
  }
  std::string allowed;
  for (const char *id : {"", "perf01", "sys05", "sys06", "perf01,sys05", "perf01\tsys05",
                         "perf01 sys05", "PERF01", "perf0", "perf011", " perf01", "\xFC", "ü"}) {
    allowed += settings.isAllowed(id) ? std::string(id) + "|" : "";
  }
  EXPECT_EQ(allowed, GetParam().allowed);
}

const AllowedRow kSettingsAllowedRows[] = {
    {"NoEventIsAllowedByDefault", {""}, ""},
    {"AllowedEventsSplitAtBlanks", {"allowed=perf01 sys05"}, "perf01|sys05|"},
    {"AllowedEventsDoNotSplitAtCommas", {"allowed=perf01,sys05"}, "|"},
    {"AllowedEventsDoNotSplitAtQuotedCommas", {"allowed=\"perf01,sys05\""}, "perf01,sys05|"},
    {"AllowedEventsDoNotSplitAtTabs", {"allowed=\"perf01\\tsys05\""}, "perf01\tsys05|"},
    {"AllowedEventsAreTrimmed", {"allowed=\"\\tperf01\\t \\nsys05\\n\""}, "perf01|sys05|"},
    {"DoubleBlankAllowsTheEmptyIdentifier", {"allowed=perf01  sys05"}, "|perf01|sys05|"},
    {"EmptyKeyAllowsTheEmptyIdentifierOnly", {"allowed=perf01", "allowed="}, "|"},
    {"AllowedEventsAreCaseSensitiveAndWhole", {"allowed=perf01"}, "perf01|"},
    {"IdentifierIsReadAsLatin1", {"allowed=\"\\xfc\""}, "\xFC|"},
    {"NewAllowedEventsReplaceTheOld",
     {"allowed=perf01 sys05", "allowed=sys06 sys05"},
     "sys05|sys06|"},
    {"RemovedKeyKeepsTheAllowedEvents", {"allowed=perf01", "port=514"}, "perf01|"},
    {"AllowedKeyInASectionHasNoEffect", {"[events]\nallowed=perf01"}, ""}};

INSTANTIATE_TEST_SUITE_P(Rows, SettingsAllowed, testing::ValuesIn(kSettingsAllowedRows),
                         OutcomeOf<AllowedRow>);

// --- Reading and printing ----------------------------------------------------------------------

struct PrintRow : Row {
  std::string file;
  std::string lines;  // in alphabetical order
};

class SettingsFile : public testing::TestWithParam<PrintRow> {};

TEST_P(SettingsFile, IsPrinted) {
  Settings settings;
  Parse(settings, "host=before\n");
  const Output output = Parse(settings, GetParam().file);
  EXPECT_EQ(output.err, "");
  EXPECT_EQ(SortedLines(output.out), GetParam().lines);
  EXPECT_EQ(ReadFile(kSettingsPath), GetParam().file);  // left as it is
}

const PrintRow kSettingsFileRows[] = {
    {"EveryEntryIsPrintedWhetherKnownOrNot", "port=0514\nnonsense = a b \n[syslog]\nport=x\n",
     "nonsense: a b\nport: 0514\nsyslog/port: x\n"},
    {"EntriesArePrintedAsUtf8", "host=\"\\xfc\"\n", "host: ü\n"},
    {"EmptyValueIsPrinted", "host=\n", "host: \n"},
    {"PercentSignsArePrintedAsTheyAre", "host=100%s", "host: 100%s\n"},
    {"LinesWithASemicolonInFrontAreNoEntries", "; port=1\n;port=2\nport=3\n", "port: 3\n"},
    {"CarriageReturnsBelongToTheLineEnds", "port=1\r\n", "port: 1\n"},
    {"ListIsPrintedEmpty", "y=1,2\n", "y: \n"}};

INSTANTIATE_TEST_SUITE_P(Rows, SettingsFile, testing::ValuesIn(kSettingsFileRows),
                         OutcomeOf<PrintRow>);

TEST(SettingsTest, DumpPrintsTheEntriesLastParsed) {
  Settings settings;
  Parse(settings, "port=1\n");
  WriteSettings("port=2\n");
  EXPECT_EQ(OutputOf([&] { settings.dumpSettings(); }), (Output{"port: 1\n", ""}));
}

TEST(SettingsTest, ReadingTheFileAppliesNothing) {
  EXPECT_EQ(Settings::readSettingsFile().size(), 0);
  WriteSettings("port=99\n");
  EXPECT_EQ(Settings::readSettingsFile().value(QStringLiteral("port")).toStdString(), "99");
}

TEST(SettingsTest, BinaryFileLeavesTheDefaultsAndTheNextFileIsRead) {
  Settings settings;
  Parse(settings, BinaryNoise());
  EXPECT_EQ(All(settings), kDefaults);
  Parse(settings, "port=99\n");
  EXPECT_EQ(settings.port(), 99);
}

TEST(SettingsTest, FileOfMegabytesIsReadWhole) {
  const std::string text(1024 * 1024, 'x');
  std::string contents = "formatString=" + text + "\n";
  for (int key = 0; key < 100'000; ++key) {
    contents += "key" + std::to_string(key) + "=value\n";
  }
  Settings settings;
  Parse(settings, contents);
  EXPECT_TRUE(settings.formatString().toStdString() == text);
  EXPECT_EQ(Settings::readSettingsFile().size(), 100'001);
}

TEST(SettingsTest, FolderInPlaceOfTheFileLeavesTheDefaults) {
  std::filesystem::create_directory(kSettingsPath);
  Settings settings;
  EXPECT_EQ(Parse(settings), (Output{"", ""}));
  EXPECT_EQ(All(settings), kDefaults);
}

// --- The check for changes ---------------------------------------------------------------------

struct ChangeRow : Row {
  std::string before;
  std::string after;
  bool isChange;
};

class SettingsContents : public testing::TestWithParam<ChangeRow> {};

TEST_P(SettingsContents, AreCompared) {
  Settings settings;
  Parse(settings, GetParam().before);
  EXPECT_FALSE(settings.settingsChanged());
  WriteSettings(GetParam().after);
  const auto check = [&] { EXPECT_EQ(settings.settingsChanged(), GetParam().isChange); };
  EXPECT_EQ(OutputOf(check), (Output{"", ""}));
  EXPECT_FALSE(settings.settingsChanged()) << "reported twice";
}

const ChangeRow kSettingsContentsRows[] = {
    {"TouchedFileIsNoChange", "port=1\n", "port=1\n", false},
    {"ChangedValueIsAChange", "port=1\n", "port=2\n", true},
    {"AddedKeyIsAChange", "port=1\n", "port=1\nhost=x\n", true},
    {"RemovedKeyIsAChange", "port=1\nhost=x\n", "port=1\n", true},
    {"RenamedKeyIsAChange", "port=1\n", "perfMon=1\n", true},
    {"UnknownKeyCountsToo", "nonsense=1\n", "nonsense=2\n", true},
    {"OrderBlanksAndCommentsAreNoChange", "port=1\nhost=x\n", "; a comment\nhost = x\nport = 1\n",
     false}};

INSTANTIATE_TEST_SUITE_P(Rows, SettingsContents, testing::ValuesIn(kSettingsContentsRows),
                         OutcomeOf<ChangeRow>);

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
  SetModificationTime(kSettingsPath, kTime + 1);
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

TEST_F(SettingsTimeTest, EarlierTimeIsLookedAtToo) {
  WriteAt("port=2\n", 1000);
  EXPECT_TRUE(settings_.settingsChanged());
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
