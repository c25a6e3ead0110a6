#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <functional>
#include <string>
#include <string_view>
#include <vector>

#include "config/settings_fixture.h"

namespace ov {
namespace {

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

}  // namespace
}  // namespace ov
