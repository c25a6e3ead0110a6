#include "config/settings.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <functional>
#include <string>
#include <string_view>
#include <vector>

#include "support/files.h"
#include "support/output.h"

namespace ov {
namespace {

constexpr std::int64_t kSomeTime = 1'600'000'000;

class SettingsTest : public testing::Test {
 protected:
  SettingsTest() { std::remove(kSettingsPath); }

  // Each write moves the file's time on by ten seconds, as if that much time had passed.
  void Write(std::string_view contents) {
    time_ += 10;
    WriteAt(contents, time_);
  }

  static void WriteAt(std::string_view contents, std::int64_t seconds, long nanoseconds = 0) {
    WriteFile(kSettingsPath, contents);
    SetModificationTime(kSettingsPath, seconds, nanoseconds);
  }

  Output Parse() {
    return OutputOf([this] { settings_.parseSettings(); });
  }

  Output Parse(std::string_view contents) {
    Write(contents);
    return Parse();
  }

  bool Changed() { return settings_.settingsChanged(); }

  // Which of the identifiers are allowed, in their order.
  std::vector<std::string> AllowedOf(const std::vector<std::string> &ids) const {
    std::vector<std::string> allowed;
    for (const std::string &id : ids) {
      if (settings_.isAllowed(id.c_str())) {
        allowed.push_back(id);
      }
    }
    return allowed;
  }

  Settings settings_;

 private:
  // For all tests of a process: Qt keeps what it read of a file of the same time and size.
  static inline std::int64_t time_ = kSomeTime;
};

std::vector<std::string> SortedLines(const std::string &text) {
  std::vector<std::string> lines;
  for (std::size_t start = 0; start < text.size();) {
    const std::size_t end = std::min(text.find('\n', start), text.size());
    lines.push_back(text.substr(start, end - start));
    start = end + 1;
  }
  std::sort(lines.begin(), lines.end());
  return lines;
}

// --- Keys that are numbers ---------------------------------------------------------------------

struct NumberKey {
  std::string name;
  std::int32_t fallback;
  std::function<std::int32_t(const Settings &)> value;
};

void PrintTo(const NumberKey &key, std::ostream *stream) { *stream << key.name; }

std::string NameOf(const testing::TestParamInfo<NumberKey> &info) { return info.param.name; }

class NumberKeyTest : public SettingsTest, public testing::WithParamInterface<NumberKey> {
 protected:
  std::int32_t ValueAfter(const std::string &text) {
    Parse(GetParam().name + "=" + text + "\n");
    return GetParam().value(settings_);
  }
};

const NumberKey kNumberKeys[] = {
    {"facility", 3, &Settings::facility},
    {"port", 514, &Settings::port},
    {"cpuThreshold", 80, &Settings::cpuThreshold},
    {"memThreshold", 80, &Settings::memThreshold},
    {"diskThreshold", 80, &Settings::diskThreshold},
};

INSTANTIATE_TEST_SUITE_P(Keys, NumberKeyTest, testing::ValuesIn(kNumberKeys), NameOf);

TEST_P(NumberKeyTest, HasItsDefaultWithoutAFile) {
  Parse();
  EXPECT_EQ(GetParam().value(settings_), GetParam().fallback);
}

TEST_P(NumberKeyTest, TakesADecimalInteger) { EXPECT_EQ(ValueAfter("42"), 42); }

TEST_P(NumberKeyTest, IsNotRangeChecked) { EXPECT_EQ(ValueAfter("70000"), 70000); }

TEST_P(NumberKeyTest, TakesANegativeNumber) { EXPECT_EQ(ValueAfter("-7"), -7); }

TEST_P(NumberKeyTest, TakesTheLargestNumber) { EXPECT_EQ(ValueAfter("2147483647"), 2147483647); }

TEST_P(NumberKeyTest, TakesTheSmallestNumber) {
  EXPECT_EQ(ValueAfter("-2147483648"), -2147483647 - 1);
}

TEST_P(NumberKeyTest, TakesANumberAmongBlanks) { EXPECT_EQ(ValueAfter(" 42 "), 42); }

TEST_P(NumberKeyTest, TakesANumberAmongQuotedBlanks) { EXPECT_EQ(ValueAfter("\" 42 \""), 42); }

TEST_P(NumberKeyTest, ReadsLeadingZerosAsDecimal) { EXPECT_EQ(ValueAfter("0042"), 42); }

TEST_P(NumberKeyTest, KeepsItsValueWhenTheKeyIsRemoved) {
  ValueAfter("42");
  Parse("host=collector\n");
  EXPECT_EQ(GetParam().value(settings_), 42);
}

TEST_P(NumberKeyTest, KeepsItsValueWhenTheFileIsRemoved) {
  ValueAfter("42");
  std::remove(kSettingsPath);
  Parse();
  EXPECT_EQ(GetParam().value(settings_), 42);
}

TEST_P(NumberKeyTest, KeepsItsLastValueWhenTheNewOneIsInvalid) {
  ValueAfter("42");
  EXPECT_EQ(ValueAfter("many"), 42);
}

TEST_P(NumberKeyTest, HasNoEffectInASection) {
  Parse("[syslog]\n" + GetParam().name + "=42\n");
  EXPECT_EQ(GetParam().value(settings_), GetParam().fallback);
}

TEST_P(NumberKeyTest, HasEffectInTheGeneralSection) {
  Parse("[General]\n" + GetParam().name + "=42\n");
  EXPECT_EQ(GetParam().value(settings_), 42);
}

TEST_P(NumberKeyTest, IsNotTakenUnderAnotherCase) {
  std::string upper = GetParam().name;
  upper[0] = static_cast<char>(upper[0] - 'a' + 'A');
  Parse(upper + "=42\n");
  EXPECT_EQ(GetParam().value(settings_), GetParam().fallback);
}

class InvalidNumberTest : public SettingsTest, public testing::WithParamInterface<const char *> {};

TEST_P(InvalidNumberTest, LeavesEveryNumberAsItWas) {
  std::string contents;
  for (const NumberKey &key : kNumberKeys) {
    contents += key.name + "=" + GetParam() + "\n";
  }
  Parse(contents);
  for (const NumberKey &key : kNumberKeys) {
    EXPECT_EQ(key.value(settings_), key.fallback) << key.name;
  }
}

TEST_P(InvalidNumberTest, IsPassedOverWithoutAMessage) {
  EXPECT_EQ(Parse(std::string("port=") + GetParam() + "\n").err, "");
}

INSTANTIATE_TEST_SUITE_P(Texts, InvalidNumberTest,
                         testing::Values("", "abc", "0x10", "8o", "true", "1e3", "1.5", "42.0",
                                         "4 2", "42x", "x42", "--1", "2147483648", "-2147483649",
                                         "99999999999999999999", "1,2"));

// --- Monitor switches --------------------------------------------------------------------------

struct SwitchKey {
  std::string name;
  std::function<bool(const Settings &)> on;
};

void PrintTo(const SwitchKey &key, std::ostream *stream) { *stream << key.name; }

class SwitchKeyTest : public SettingsTest, public testing::WithParamInterface<SwitchKey> {
 protected:
  bool OnAfter(const std::string &text) {
    Parse(GetParam().name + "=" + text + "\n");
    return GetParam().on(settings_);
  }
};

const SwitchKey kSwitchKeys[] = {
    {"usbDevMon", &Settings::usbDevMon},
    {"vmwSigninMon", &Settings::vmwSigninMon},
    {"agentConnMon", &Settings::agentConnMon},
    {"perfMon", &Settings::perfMon},
};

INSTANTIATE_TEST_SUITE_P(Keys, SwitchKeyTest, testing::ValuesIn(kSwitchKeys),
                         [](const auto &key) { return key.param.name; });

TEST_P(SwitchKeyTest, IsOffByDefault) { EXPECT_FALSE(GetParam().on(settings_)); }

TEST_P(SwitchKeyTest, OneIsOn) { EXPECT_TRUE(OnAfter("1")); }

TEST_P(SwitchKeyTest, LargerNumberIsOn) { EXPECT_TRUE(OnAfter("2")); }

TEST_P(SwitchKeyTest, ZeroIsOff) {
  OnAfter("1");
  EXPECT_FALSE(OnAfter("0"));
}

TEST_P(SwitchKeyTest, NegativeNumberIsOff) {
  OnAfter("1");
  EXPECT_FALSE(OnAfter("-1"));
}

TEST_P(SwitchKeyTest, WordTrueDoesNotTurnItOn) { EXPECT_FALSE(OnAfter("true")); }

TEST_P(SwitchKeyTest, WordFalseDoesNotTurnItOff) {
  OnAfter("1");
  EXPECT_TRUE(OnAfter("false"));
}

TEST_P(SwitchKeyTest, StaysOnWhenTheKeyIsRemoved) {
  OnAfter("1");
  Parse("port=514\n");
  EXPECT_TRUE(GetParam().on(settings_));
}

TEST_P(SwitchKeyTest, OthersStayOff) {
  OnAfter("1");
  const auto on = std::count_if(std::begin(kSwitchKeys), std::end(kSwitchKeys),
                                [this](const SwitchKey &key) { return key.on(settings_); });
  EXPECT_EQ(on, 1);
}

TEST_P(SwitchKeyTest, HasNoEffectInASection) {
  Parse("[monitors]\n" + GetParam().name + "=1\n");
  EXPECT_FALSE(GetParam().on(settings_));
}

// --- Keys that are texts -----------------------------------------------------------------------

TEST_F(SettingsTest, FormatStringIsTheFullLineByDefault) {
  Parse();
  EXPECT_EQ(settings_.formatString().toStdString(),
            "<[PRI]> [DATE] [NAME]([IP]): [ID] [DESC] - [VAL] ([SEV])");
}

TEST_F(SettingsTest, FormatStringIsTakenAsWritten) {
  Parse("formatString=<[PRI]> [NAME] [ID]: [VAL]\n");
  EXPECT_EQ(settings_.formatString().toStdString(), "<[PRI]> [NAME] [ID]: [VAL]");
}

TEST_F(SettingsTest, FormatStringKeepsQuotedBlanksAndCommas) {
  Parse("formatString=\"  [ID], [VAL]  \"\n");
  EXPECT_EQ(settings_.formatString().toStdString(), "  [ID], [VAL]  ");
}

TEST_F(SettingsTest, FormatStringWithAnUnquotedCommaIsAListAndSoEmpty) {
  Parse("formatString=[ID], [VAL]\n");
  EXPECT_EQ(settings_.formatString().toStdString(), "");
}

TEST_F(SettingsTest, FormatStringMayBeEmpty) {
  Parse("formatString=\n");
  EXPECT_EQ(settings_.formatString().toStdString(), "");
}

TEST_F(SettingsTest, FormatStringKeepsItsValueWhenTheKeyIsRemoved) {
  Parse("formatString=[ID]\n");
  Parse("port=514\n");
  EXPECT_EQ(settings_.formatString().toStdString(), "[ID]");
}

TEST_F(SettingsTest, FormatStringInASectionHasNoEffect) {
  Parse("[syslog]\nformatString=[ID]\nhost=elsewhere\n");
  EXPECT_EQ(settings_.formatString(), Settings().formatString());
}

TEST_F(SettingsTest, HostIsEmptyByDefault) {
  Parse();
  EXPECT_EQ(settings_.host().toStdString(), "");
}

TEST_F(SettingsTest, HostIsTakenAsWritten) {
  Parse("host=collector.example\n");
  EXPECT_EQ(settings_.host().toStdString(), "collector.example");
}

TEST_F(SettingsTest, HostIsNotTrimmed) {
  Parse("host=\" collector \"\n");
  EXPECT_EQ(settings_.host().toStdString(), " collector ");
}

TEST_F(SettingsTest, HostKeepsItsValueWhenTheKeyIsRemoved) {
  Parse("host=collector\n");
  Parse("port=514\n");
  EXPECT_EQ(settings_.host().toStdString(), "collector");
}

TEST_F(SettingsTest, HostInASectionHasNoEffect) {
  Parse("[syslog]\nhost=elsewhere\n");
  EXPECT_EQ(settings_.host().toStdString(), "");
}

// --- Protocol ----------------------------------------------------------------------------------

TEST_F(SettingsTest, ProtocolIsUdpByDefault) {
  Parse();
  EXPECT_EQ(settings_.protocol(), 0);
}

TEST_F(SettingsTest, SyslogTcpIsProtocolOne) {
  Parse("protocol=syslog-tcp\n");
  EXPECT_EQ(settings_.protocol(), 1);
}

TEST_F(SettingsTest, ProtocolKeepsItsValueWhenTheKeyIsRemoved) {
  Parse("protocol=syslog-tcp\n");
  Parse("port=514\n");
  EXPECT_EQ(settings_.protocol(), 1);
}

TEST_F(SettingsTest, ProtocolInASectionHasNoEffect) {
  Parse("[syslog]\nprotocol=syslog-tcp\n");
  EXPECT_EQ(settings_.protocol(), 0);
}

class UdpProtocolTest : public SettingsTest, public testing::WithParamInterface<const char *> {};

TEST_P(UdpProtocolTest, ReplacesTcp) {
  Parse("protocol=syslog-tcp\n");
  Parse(std::string("protocol=") + GetParam() + "\n");
  EXPECT_EQ(settings_.protocol(), 0);
}

INSTANTIATE_TEST_SUITE_P(Texts, UdpProtocolTest,
                         testing::Values("syslog-udp", "SYSLOG-TCP", "Syslog-Tcp", "tcp", "1", "",
                                         "\"syslog-tcp \"", "syslog-tcp2"));

// --- Allowed events ----------------------------------------------------------------------------

TEST_F(SettingsTest, NoEventIsAllowedByDefault) {
  Parse();
  EXPECT_THAT(AllowedOf({"perf01", "sys05", ""}), testing::IsEmpty());
}

TEST_F(SettingsTest, AllowedEventsAreSplitAtBlanks) {
  Parse("allowed=perf01 sys05\n");
  EXPECT_THAT(AllowedOf({"perf01", "sys05", "perf02", "perf01 sys05", ""}),
              testing::ElementsAre("perf01", "sys05"));
}

TEST_F(SettingsTest, AllowedEventsAreNotSplitAtUnquotedCommas) {
  Parse("allowed=perf01,sys05\n");
  EXPECT_THAT(AllowedOf({"perf01", "sys05", "perf01,sys05"}), testing::IsEmpty());
}

TEST_F(SettingsTest, AllowedEventsAreNotSplitAtQuotedCommas) {
  Parse("allowed=\"perf01,sys05\"\n");
  EXPECT_THAT(AllowedOf({"perf01", "sys05", "perf01,sys05"}), testing::ElementsAre("perf01,sys05"));
}

TEST_F(SettingsTest, AllowedEventsAreNotSplitAtTabs) {
  Parse("allowed=\"perf01\\tsys05\"\n");
  EXPECT_THAT(AllowedOf({"perf01", "sys05", "perf01\tsys05"}),
              testing::ElementsAre("perf01\tsys05"));
}

TEST_F(SettingsTest, AllowedEventsAreTrimmed) {
  Parse("allowed=\"\\tperf01\\t \\nsys05\\n\"\n");
  EXPECT_THAT(AllowedOf({"perf01", "sys05"}), testing::ElementsAre("perf01", "sys05"));
}

TEST_F(SettingsTest, DoubleBlankAllowsTheEmptyIdentifier) {
  Parse("allowed=perf01  sys05\n");
  EXPECT_THAT(AllowedOf({"perf01", "", "sys05"}), testing::ElementsAre("perf01", "", "sys05"));
}

TEST_F(SettingsTest, EmptyAllowedKeyAllowsTheEmptyIdentifierOnly) {
  Parse("allowed=perf01\n");
  Parse("allowed=\n");
  EXPECT_THAT(AllowedOf({"perf01", ""}), testing::ElementsAre(""));
}

TEST_F(SettingsTest, RepeatedIdentifierIsAllowed) {
  Parse("allowed=perf01 perf01\n");
  EXPECT_THAT(AllowedOf({"perf01"}), testing::ElementsAre("perf01"));
}

TEST_F(SettingsTest, AllowedCheckIsCaseSensitive) {
  Parse("allowed=perf01\n");
  EXPECT_THAT(AllowedOf({"PERF01", "Perf01"}), testing::IsEmpty());
}

TEST_F(SettingsTest, AllowedCheckComparesWholeIdentifiers) {
  Parse("allowed=perf01\n");
  EXPECT_THAT(AllowedOf({"perf0", "perf011", " perf01", "erf01"}), testing::IsEmpty());
}

TEST_F(SettingsTest, AllowedCheckReadsTheIdentifierAsLatin1) {
  Parse("allowed=\"\\xfc\"\n");
  EXPECT_THAT(AllowedOf({"\xFC", "ü"}), testing::ElementsAre("\xFC"));
}

TEST_F(SettingsTest, NewAllowedEventsReplaceTheOld) {
  Parse("allowed=perf01 sys05\n");
  Parse("allowed=sys06 sys05\n");
  EXPECT_THAT(AllowedOf({"perf01", "sys05", "sys06"}), testing::ElementsAre("sys05", "sys06"));
}

TEST_F(SettingsTest, AllowedEventsStayWhenTheKeyIsRemoved) {
  Parse("allowed=perf01\n");
  Parse("port=514\n");
  EXPECT_THAT(AllowedOf({"perf01", "sys05"}), testing::ElementsAre("perf01"));
}

TEST_F(SettingsTest, AllowedEventsStayWhenTheFileIsRemoved) {
  Parse("allowed=perf01\n");
  std::remove(kSettingsPath);
  Parse();
  EXPECT_THAT(AllowedOf({"perf01", "sys05"}), testing::ElementsAre("perf01"));
}

TEST_F(SettingsTest, AllowedKeyInASectionHasNoEffect) {
  Parse("[events]\nallowed=perf01\n");
  EXPECT_FALSE(settings_.isAllowed("perf01"));
}

// --- Reading and printing ----------------------------------------------------------------------

TEST_F(SettingsTest, MissingFilePrintsNothing) { EXPECT_EQ(Parse(), (Output{"", ""})); }

TEST_F(SettingsTest, MissingFileReadsAsNoKeys) {
  EXPECT_EQ(Settings::readSettingsFile().size(), 0);
}

TEST_F(SettingsTest, EveryEntryIsPrintedWhetherKnownOrNot) {
  const Output output = Parse("port=0514\nnonsense=a b\n[syslog]\nport=x\n");
  EXPECT_THAT(SortedLines(output.out),
              testing::ElementsAre("nonsense: a b", "port: 0514", "syslog/port: x"));
  EXPECT_EQ(output.err, "");
}

TEST_F(SettingsTest, EntriesArePrintedAsUtf8) {
  EXPECT_EQ(Parse("host=\"\\xfc\"\n").out, "host: ü\n");
}

TEST_F(SettingsTest, EmptyValueIsPrinted) { EXPECT_EQ(Parse("host=\n").out, "host: \n"); }

TEST_F(SettingsTest, PercentSignsArePrintedAsTheyAre) {
  EXPECT_EQ(Parse("host=100%s\n").out, "host: 100%s\n");
}

TEST_F(SettingsTest, DumpPrintsTheEntriesLastParsed) {
  Parse("port=1\n");
  Write("port=2\n");
  EXPECT_EQ(OutputOf([this] { settings_.dumpSettings(); }), (Output{"port: 1\n", ""}));
}

TEST_F(SettingsTest, RemovedKeyIsNotPrintedAnyMore) {
  Parse("port=1\nhost=collector\n");
  EXPECT_EQ(Parse("port=1\n").out, "port: 1\n");
}

TEST_F(SettingsTest, LinesWithASemicolonInFrontAreNoEntries) {
  EXPECT_EQ(Parse("; port=1\n;port=2\nport=3\n").out, "port: 3\n");
}

TEST_F(SettingsTest, CarriageReturnsBelongToTheLineEnds) {
  EXPECT_EQ(Parse("port=1\r\n").out, "port: 1\n");
}

TEST_F(SettingsTest, LastLineNeedsNoNewline) { EXPECT_EQ(Parse("port=1").out, "port: 1\n"); }

TEST_F(SettingsTest, ReadingTheFileAppliesNothing) {
  Write("port=99\n");
  EXPECT_EQ(Settings::readSettingsFile().value(QStringLiteral("port")).toStdString(), "99");
  EXPECT_EQ(settings_.port(), 514);
}

TEST_F(SettingsTest, FileIsLeftAsItIs) {
  const std::string contents = "port = 0514 \n; kept\n[x]\ny=1,2\n";
  Parse(contents);
  std::string found(100, '\0');
  std::FILE *file = std::fopen(kSettingsPath, "rb");
  found.resize(std::fread(found.data(), 1, found.size(), file));
  std::fclose(file);
  EXPECT_EQ(found, contents);
}

TEST_F(SettingsTest, FileIsReadAfterABinaryOne) {
  Parse(BinaryNoise());
  Parse("port=99\n");
  EXPECT_EQ(settings_.port(), 99);
}

TEST_F(SettingsTest, BinaryFileLeavesTheDefaults) {
  Parse(BinaryNoise());
  EXPECT_EQ(settings_.port(), 514);
  EXPECT_EQ(settings_.formatString(), Settings().formatString());
}

TEST_F(SettingsTest, ValueOfOneMegabyteIsReadWhole) {
  const std::string text(1024 * 1024, 'x');
  Parse("formatString=" + text + "\nport=99\n");
  EXPECT_TRUE(settings_.formatString().toStdString() == text);
  EXPECT_EQ(settings_.port(), 99);
}

TEST_F(SettingsTest, FileOfOneMegabyteOfKeysIsReadWhole) {
  std::string contents;
  int keys = 0;
  for (; contents.size() < 1024 * 1024; ++keys) {
    contents += "key" + std::to_string(keys) + "=value\n";
  }
  Write(contents);
  EXPECT_EQ(Settings::readSettingsFile().size(), keys);
}

TEST_F(SettingsTest, FolderInPlaceOfTheFileLeavesTheDefaults) {
  ASSERT_EQ(std::system(("mkdir " + std::string(kSettingsPath)).c_str()), 0);
  EXPECT_EQ(Parse(), (Output{"", ""}));
  EXPECT_EQ(settings_.port(), 514);
}

// --- The check for changes ---------------------------------------------------------------------

TEST_F(SettingsTest, UnchangedFileIsNoChange) {
  Parse("port=1\n");
  EXPECT_FALSE(Changed());
}

TEST_F(SettingsTest, ChangedValueIsAChange) {
  Parse("port=1\n");
  Changed();
  Write("port=2\n");
  EXPECT_TRUE(Changed());
}

TEST_F(SettingsTest, ChangeBeforeTheFirstCheckIsAChange) {
  Parse("port=1\n");
  Write("port=2\n");
  EXPECT_TRUE(Changed());
}

TEST_F(SettingsTest, AddedKeyIsAChange) {
  Parse("port=1\n");
  Write("port=1\nhost=collector\n");
  EXPECT_TRUE(Changed());
}

TEST_F(SettingsTest, RemovedKeyIsAChange) {
  Parse("port=1\nhost=collector\n");
  Write("port=1\n");
  EXPECT_TRUE(Changed());
}

TEST_F(SettingsTest, RenamedKeyIsAChange) {
  Parse("port=1\n");
  Write("perfMon=1\n");
  EXPECT_TRUE(Changed());
}

TEST_F(SettingsTest, ChangeOfAnUnknownKeyIsAChange) {
  Parse("nonsense=1\n");
  Write("nonsense=2\n");
  EXPECT_TRUE(Changed());
}

TEST_F(SettingsTest, TouchedFileIsNoChange) {
  Parse("port=1\n");
  Changed();
  SetModificationTime(kSettingsPath, kSomeTime + 1000);
  EXPECT_FALSE(Changed());
}

TEST_F(SettingsTest, OtherOrderAndCommentsAreNoChange) {
  Parse("port=1\nhost=collector\n");
  Write("; a comment\nhost = collector\nport = 1\n");
  EXPECT_FALSE(Changed());
}

TEST_F(SettingsTest, ChangeIsReportedOnce) {
  Parse("port=1\n");
  Write("port=2\n");
  Changed();
  EXPECT_FALSE(Changed());
}

TEST_F(SettingsTest, ParsedChangeIsNoChangeAnyMore) {
  Parse("port=1\n");
  Changed();
  Parse("port=2\n");
  EXPECT_FALSE(Changed());
}

TEST_F(SettingsTest, ChangeWithinTheSecondAlreadySeenIsNotNoticed) {
  Parse("port=1\n");
  WriteAt("port=1\n", kSomeTime);
  Changed();
  WriteAt("port=22\n", kSomeTime, 999'999'999);
  EXPECT_FALSE(Changed());
}

TEST_F(SettingsTest, ChangeWithinTheSecondAlreadySeenIsNoticedOnceTheTimeMoves) {
  Parse("port=1\n");
  WriteAt("port=1\n", kSomeTime);
  Changed();
  WriteAt("port=22\n", kSomeTime, 999'999'999);
  Changed();
  SetModificationTime(kSettingsPath, kSomeTime + 1);
  EXPECT_TRUE(Changed());
}

TEST_F(SettingsTest, TouchMovesTheTimeThatIsRemembered) {
  Parse("port=1\n");
  SetModificationTime(kSettingsPath, kSomeTime + 1000);
  Changed();
  WriteAt("port=22\n", kSomeTime + 1000);
  EXPECT_FALSE(Changed());
}

TEST_F(SettingsTest, ReportedChangeMovesTheTimeThatIsRemembered) {
  Parse("port=1\n");
  WriteAt("port=22\n", kSomeTime + 1000);
  Changed();
  WriteAt("port=333\n", kSomeTime + 1000);
  EXPECT_FALSE(Changed());
}

TEST_F(SettingsTest, ParsingDoesNotMoveTheTimeThatIsRemembered) {
  WriteAt("port=1\n", kSomeTime);
  Parse();
  Changed();
  WriteAt("port=22\n", kSomeTime + 5);
  Parse();
  WriteAt("port=333\n", kSomeTime);
  EXPECT_FALSE(Changed());
}

TEST_F(SettingsTest, FileWithAnOlderTimeIsLookedAtToo) {
  Parse("port=1\n");
  Changed();
  WriteAt("port=2\n", 1000);
  EXPECT_TRUE(Changed());
}

TEST_F(SettingsTest, MissingFileIsNoChange) {
  Parse();
  EXPECT_FALSE(Changed());
}

TEST_F(SettingsTest, RemovedFileIsNoChange) {
  Parse("port=1\n");
  Changed();
  std::remove(kSettingsPath);
  EXPECT_FALSE(Changed());
}

TEST_F(SettingsTest, AppearingFileIsAChange) {
  Parse();
  Changed();
  Write("port=1\n");
  EXPECT_TRUE(Changed());
}

TEST_F(SettingsTest, AppearingEmptyFileIsNoChange) {
  Parse();
  Write("");
  EXPECT_FALSE(Changed());
}

TEST_F(SettingsTest, CheckAppliesNothing) {
  Parse("port=1\n");
  Write("port=2\n");
  Changed();
  EXPECT_EQ(settings_.port(), 1);
}

TEST_F(SettingsTest, CheckPrintsNothing) {
  Parse("port=1\n");
  Write("port=2\n");
  EXPECT_EQ(OutputOf([this] { Changed(); }), (Output{"", ""}));
}

}  // namespace
}  // namespace ov
