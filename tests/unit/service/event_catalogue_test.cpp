#include "service/event_catalogue.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <QTextCodec>
#include <atomic>
#include <cstdio>
#include <filesystem>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

#include "base/standard_streams.h"
#include "support/files.h"
#include "support/output.h"

namespace ov {
namespace {

const std::string kProgress =
    "loading Event definitions...\n"
    "loading /usr/lib/orvan/ov-event-logger/ov-event-def.csv\n";

// "label|description|severity name|severity".
std::string Row(const EventCatalogue &catalogue, const char *id) {
  const auto entry = catalogue.constFind(QString::fromUtf8(id));
  if (entry == catalogue.cend()) {
    return "(not defined)";
  }
  EXPECT_EQ(entry->id, entry.key());
  return (entry->label + QLatin1Char('|') + entry->description + QLatin1Char('|') +
          entry->severityName)
             .toStdString() +
         "|" + std::to_string(entry->severity);
}

class EventCatalogueTest : public testing::Test {
 protected:
  EventCatalogueTest() {
    SetUpStandardStreams();
    std::filesystem::remove_all(kSystemDefinitionsPath);
    std::filesystem::remove_all(kFallbackDefinitionsPath);
  }

  Output Load() {
    return OutputOf([this] { catalogue_ = loadEventDefinitions(); });
  }

  Output Load(std::string_view contents) {
    WriteFile(kSystemDefinitionsPath, contents);
    return Load();
  }

  EventCatalogue catalogue_;
};

// --- Which file --------------------------------------------------------------------------------

TEST_F(EventCatalogueTest, WithoutAFileOnlyTheFirstProgressLineIsPrinted) {
  EXPECT_EQ(Load(), (Output{"loading Event definitions...\n", ""}));
}

TEST_F(EventCatalogueTest, WithoutAFileNothingIsDefined) {
  Load();
  EXPECT_EQ(catalogue_.size(), 0);
}

TEST_F(EventCatalogueTest, SystemFileIsReadWithTwoProgressLines) {
  EXPECT_EQ(Load("perf01,CPU,CPU usage is high,warn\n"), (Output{kProgress, ""}));
}

TEST_F(EventCatalogueTest, FallbackIsNotLookedAtBesideTheSystemFile) {
  WriteFile(kFallbackDefinitionsPath, "perf01,a,from the fallback,err\nsys05,b,c,err\n");
  Load("perf01,CPU,from the system,warn\n");
  EXPECT_EQ(catalogue_.keys(), QStringList{QStringLiteral("perf01")});
  EXPECT_EQ(Row(catalogue_, "perf01"), "CPU|from the system|warn|4");
}

TEST_F(EventCatalogueTest, FallbackIsReadWithoutASystemFile) {
  WriteFile(kFallbackDefinitionsPath, "perf01,CPU,from the fallback,err\n");
  Load();
  EXPECT_EQ(Row(catalogue_, "perf01"), "CPU|from the fallback|err|3");
}

TEST_F(EventCatalogueTest, FallbackIsNamedInTheProgressLine) {
  WriteFile(kFallbackDefinitionsPath, "perf01,CPU,from the fallback,err\n");
  EXPECT_EQ(Load(), (Output{"loading Event definitions...\nloading /tmp/ov-event-def.csv\n", ""}));
}

TEST_F(EventCatalogueTest, EmptySystemFileStillKeepsTheFallbackOut) {
  WriteFile(kFallbackDefinitionsPath, "perf01,CPU,from the fallback,err\n");
  EXPECT_EQ(Load(""), (Output{kProgress, ""}));
  EXPECT_EQ(catalogue_.size(), 0);
}

TEST_F(EventCatalogueTest, FileThatCannotBeOpenedIsReported) {
  std::filesystem::create_directory(kSystemDefinitionsPath);
  EXPECT_EQ(Load(), (Output{kProgress,
                            "Unable to open file: "
                            "/usr/lib/orvan/ov-event-logger/ov-event-def.csv\n"}));
}

TEST_F(EventCatalogueTest, FileThatCannotBeOpenedDefinesNothing) {
  std::filesystem::create_directory(kSystemDefinitionsPath);
  WriteFile(kFallbackDefinitionsPath, "perf01,CPU,from the fallback,err\n");
  Load();
  EXPECT_EQ(catalogue_.size(), 0);
}

TEST_F(EventCatalogueTest, FallbackThatCannotBeOpenedIsReportedUnderTheSystemPath) {
  std::filesystem::create_directory(kFallbackDefinitionsPath);
  EXPECT_EQ(Load(), (Output{"loading Event definitions...\nloading /tmp/ov-event-def.csv\n",
                            "Unable to open file: "
                            "/usr/lib/orvan/ov-event-logger/ov-event-def.csv\n"}));
}

// --- Rows --------------------------------------------------------------------------------------

TEST_F(EventCatalogueTest, FieldsAreTrimmed) {
  Load("perf01, CPU, CPU usage is high, warn\n");
  EXPECT_EQ(Row(catalogue_, "perf01"), "CPU|CPU usage is high|warn|4");
}

TEST_F(EventCatalogueTest, IdentifierIsTrimmed) {
  Load(" \tperf01\t ,\tCPU\t, high ,\twarn \n");
  EXPECT_EQ(Row(catalogue_, "perf01"), "CPU|high|warn|4");
}

TEST_F(EventCatalogueTest, LastRowOfAnIdentifierWins) {
  Load("perf01,A,first,warn\nsys05,S,other,info\nperf01,B,second,crit\n");
  EXPECT_EQ(Row(catalogue_, "perf01"), "B|second|crit|2");
  EXPECT_EQ(catalogue_.size(), 2);
}

TEST_F(EventCatalogueTest, IdentifiersAreCaseSensitive) {
  Load("PERF01,CPU,high,warn\n");
  EXPECT_EQ(Row(catalogue_, "perf01"), "(not defined)");
  EXPECT_EQ(Row(catalogue_, "PERF01"), "CPU|high|warn|4");
}

TEST_F(EventCatalogueTest, UnknownSeverityIsReported) {
  EXPECT_EQ(Load("perf01,CPU,high,warning\n"),
            (Output{kProgress, "Unknown syslog level: warning\n"}));
}

TEST_F(EventCatalogueTest, RowWithAnUnknownSeverityIsKept) {
  Load("perf01,CPU,high,warning\n");
  EXPECT_EQ(Row(catalogue_, "perf01"), "CPU|high|warning|-1");
}

TEST_F(EventCatalogueTest, CommaInTheDescriptionCutsIt) {
  EXPECT_EQ(Load("net02,NET,Lost, reconnecting,err\n"),
            (Output{kProgress, "Unknown syslog level: reconnecting\n"}));
  EXPECT_EQ(Row(catalogue_, "net02"), "NET|Lost|reconnecting|-1");
}

TEST_F(EventCatalogueTest, QuotesDoNotProtectACommaAndAreKept) {
  Load("net02,\"NET\",\"Lost, again\",err\n");
  EXPECT_EQ(Row(catalogue_, "net02"), "\"NET\"|\"Lost|again\"|-1");
}

TEST_F(EventCatalogueTest, BackslashDoesNotProtectAComma) {
  Load("net02,NET,Lost\\, again,err\n");
  EXPECT_EQ(Row(catalogue_, "net02"), "NET|Lost\\|again|-1");
}

TEST_F(EventCatalogueTest, FieldsBeyondTheFourthAreIgnored) {
  EXPECT_EQ(Load("perf01,CPU,high,warn,more,,fields\n"), (Output{kProgress, ""}));
  EXPECT_EQ(Row(catalogue_, "perf01"), "CPU|high|warn|4");
}

TEST_F(EventCatalogueTest, EmptyFieldsCount) {
  EXPECT_EQ(Load("perf01,,,warn\n"), (Output{kProgress, ""}));
  EXPECT_EQ(Row(catalogue_, "perf01"), "||warn|4");
}

TEST_F(EventCatalogueTest, RowOfCommasDefinesTheEmptyIdentifier) {
  EXPECT_EQ(Load(",,,\n"), (Output{kProgress, "Unknown syslog level: \n"}));
  EXPECT_EQ(Row(catalogue_, ""), "|||-1");
}

TEST_F(EventCatalogueTest, HeaderRowIsADefinition) {
  EXPECT_EQ(Load("id,name,description,severity\n"),
            (Output{kProgress, "Unknown syslog level: severity\n"}));
  EXPECT_EQ(Row(catalogue_, "id"), "name|description|severity|-1");
}

// --- Lines that are no rows --------------------------------------------------------------------

TEST_F(EventCatalogueTest, CommentIsSkippedSilently) {
  EXPECT_EQ(Load("# id,label,description,severity\n#\n#x\n"), (Output{kProgress, ""}));
  EXPECT_EQ(catalogue_.size(), 0);
}

TEST_F(EventCatalogueTest, IndentedCommentIsALineLikeAnyOther) {
  EXPECT_EQ(Load("  # a comment\n"),
            (Output{kProgress, "Invalid line format: \"  # a comment\"\n"}));
}

TEST_F(EventCatalogueTest, IndentedCommentWithCommasIsARow) {
  Load(" # id,label,description,warn\n");
  EXPECT_EQ(Row(catalogue_, "# id"), "label|description|warn|4");
}

TEST_F(EventCatalogueTest, RowOfThreeFieldsIsReported) {
  EXPECT_EQ(Load("perf01,CPU,high\n"),
            (Output{kProgress, "Invalid line format: \"perf01,CPU,high\"\n"}));
  EXPECT_EQ(catalogue_.size(), 0);
}

TEST_F(EventCatalogueTest, EmptyLineIsReported) {
  EXPECT_EQ(Load("\n"), (Output{kProgress, "Invalid line format: \"\"\n"}));
}

TEST_F(EventCatalogueTest, ReportQuotesTheWholeLineAndEscapesQuotesAndBackslashes) {
  EXPECT_EQ(Load("  say \"hi\", C:\\dir  \n"),
            (Output{kProgress, "Invalid line format: \"  say \\\"hi\\\", C:\\\\dir  \"\n"}));
}

TEST_F(EventCatalogueTest, ReportShowsTheLineAsUtf8) {
  EXPECT_EQ(Load("Gerät ☃\n"), (Output{kProgress, "Invalid line format: \"Gerät ☃\"\n"}));
}

TEST_F(EventCatalogueTest, LoadingGoesOnAfterABadLine) {
  EXPECT_EQ(Load("bad\nperf01,CPU,high,warn\nworse\nsys05,SYS,low,loud\n"),
            (Output{kProgress,
                    "Invalid line format: \"bad\"\n"
                    "Invalid line format: \"worse\"\n"
                    "Unknown syslog level: loud\n"}));
  EXPECT_EQ(catalogue_.size(), 2);
}

// --- Bytes and sizes ---------------------------------------------------------------------------

TEST_F(EventCatalogueTest, CarriageReturnsBelongToTheLineEnds) {
  EXPECT_EQ(Load("bad\r\nperf01,CPU,high,warn\r\n"),
            (Output{kProgress, "Invalid line format: \"bad\"\n"}));
  EXPECT_EQ(Row(catalogue_, "perf01"), "CPU|high|warn|4");
}

TEST_F(EventCatalogueTest, LastLineNeedsNoNewline) {
  EXPECT_EQ(Load("sys05,SYS,low,info\nperf01,CPU,high,warn"), (Output{kProgress, ""}));
  EXPECT_EQ(Row(catalogue_, "perf01"), "CPU|high|warn|4");
}

TEST_F(EventCatalogueTest, ByteOrderMarkIsNoPartOfTheFirstIdentifier) {
  Load("\xEF\xBB\xBFperf01,CPU,high,warn\n");
  EXPECT_EQ(Row(catalogue_, "perf01"), "CPU|high|warn|4");
}

TEST_F(EventCatalogueTest, TextIsUtf8WhateverTheLocale) {
  QTextCodec::setCodecForLocale(QTextCodec::codecForName("ISO-8859-1"));
  Load("perf01,Gerät,Größe → ☃,warn\n");
  QTextCodec::setCodecForLocale(nullptr);
  EXPECT_EQ(Row(catalogue_, "perf01"), "Gerät|Größe → ☃|warn|4");
}

TEST_F(EventCatalogueTest, ByteThatIsNotUtf8IsReplaced) {
  Load("perf01,CPU,\xFFhigh,warn\n");
  EXPECT_EQ(Row(catalogue_, "perf01"), "CPU|\xEF\xBF\xBDhigh|warn|4");
}

TEST_F(EventCatalogueTest, RowsAroundBinaryNoiseAreKept) {
  Load("perf01,CPU,high,warn\n" + BinaryNoise() + "\nsys05,SYS,low,info\n");
  EXPECT_EQ(Row(catalogue_, "perf01"), "CPU|high|warn|4");
  EXPECT_EQ(Row(catalogue_, "sys05"), "SYS|low|info|6");
}

TEST_F(EventCatalogueTest, RowOfOneMegabyteIsKeptWhole) {
  const std::string text(1024 * 1024, 'x');
  Load("perf01,CPU," + text + ",warn\nsys05,SYS,low,info\n");
  EXPECT_TRUE(Row(catalogue_, "perf01") == "CPU|" + text + "|warn|4");
  EXPECT_EQ(Row(catalogue_, "sys05"), "SYS|low|info|6");
}

TEST_F(EventCatalogueTest, HundredThousandRowsAreAllDefined) {
  constexpr int kRows = 100'000;
  std::string contents;
  for (int row = 0; row < kRows; ++row) {
    contents += "id" + std::to_string(row) + ",label,description,info\n";
  }
  EXPECT_EQ(Load(contents), (Output{kProgress, ""}));
  EXPECT_EQ(catalogue_.size(), kRows);
  EXPECT_EQ(Row(catalogue_, "id99999"), "label|description|info|6");
}

QString NumberedId(int number) { return QStringLiteral("id%1").arg(number); }

TEST_F(EventCatalogueTest, OnlyWhatTheFileDefinesIsDefined) {
  Load("perf01,CPU,high,warn\n");
  EXPECT_TRUE(IsDefined(catalogue_, QStringLiteral("perf01")));
  EXPECT_FALSE(IsDefined(catalogue_, QStringLiteral("perf02")));
}

TEST_F(EventCatalogueTest, UndefinedEventGetsAnEmptyDefinitionThatStays) {
  const EventDefinition &definition = DefinitionOf(catalogue_, QStringLiteral("net09"));
  EXPECT_EQ(definition.id, QString());
  EXPECT_EQ(definition.severity, 0);
  EXPECT_TRUE(IsDefined(catalogue_, QStringLiteral("net09")));
}

TEST_F(EventCatalogueTest, DefinitionKeepsItsPlaceWhileOthersAreInserted) {
  Load("perf01,CPU,high,warn\n");
  const EventDefinition &definition = DefinitionOf(catalogue_, QStringLiteral("perf01"));
  for (int number = 0; number < 10'000; ++number) {
    DefinitionOf(catalogue_, NumberedId(number));
  }
  EXPECT_EQ(&DefinitionOf(catalogue_, QStringLiteral("perf01")), &definition);
  EXPECT_EQ(definition.description, QStringLiteral("high"));
}

TEST_F(EventCatalogueTest, DefinedEventIsFoundWhileAnotherThreadInserts) {
  Load("perf01,CPU,high,warn\n");
  std::atomic<bool> done = false;
  std::thread inserting([&] {
    for (int number = 0; number < 100'000; ++number) {
      DefinitionOf(catalogue_, NumberedId(number));
    }
    done = true;
  });
  int misses = 0;
  while (!done) {
    misses += IsDefined(catalogue_, QStringLiteral("perf01")) ? 0 : 1;
  }
  inserting.join();
  EXPECT_EQ(misses, 0);
}

}  // namespace
}  // namespace ov
