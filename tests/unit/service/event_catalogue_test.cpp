#include "service/event_catalogue.h"

#include <map>

#include "support/support.h"

namespace ov {
namespace {

const std::string kProgress =
    "loading Event definitions...\n"
    "loading /usr/lib/orvan/ov-event-logger/ov-event-def.csv\n";

struct Loaded {
  Output output;
  EventDefinitions definitions;
};

Loaded Load() {
  Loaded loaded;
  loaded.output = OutputOf([&] { loaded.definitions = loadEventDefinitions(); });
  return loaded;
}

Loaded Load(std::string_view contents) {
  WriteFile(kSystemDefinitionsPath, contents);
  return Load();
}

// "id|label|description|severity name|severity" of each, ordered by the identifiers.
std::string Listed(const EventDefinitions &definitions) {
  std::map<std::string, std::string> rows;
  for (auto entry = definitions.cbegin(); entry != definitions.cend(); ++entry) {
    const QStringList texts{entry->id, entry->label, entry->description, entry->severityName};
    rows[entry.key().toStdString()] =
        texts.join(QLatin1Char('|')).toStdString() + "|" + std::to_string(entry->severity) + "\n";
  }
  std::string listed;
  for (const auto &[id, row] : rows) {
    listed += row;
  }
  return listed;
}

// --- Which file --------------------------------------------------------------------------------

constexpr char kRow[] = "perf01,CPU,high,warn\n";
constexpr char kListedRow[] = "perf01|CPU|high|warn|4\n";
const std::string kFallbackProgress =
    "loading Event definitions...\nloading /tmp/ov-event-def.csv\n";
// Of the system file whichever could not be opened.
const std::string kCannotOpen =
    "Unable to open file: /usr/lib/orvan/ov-event-logger/ov-event-def.csv\n";

TEST(LoadEventDefinitionsTest, FallbackIsReadWithoutASystemFileAndMissingFilesDefineNothing) {
  Loaded loaded = Load();
  EXPECT_EQ(loaded.output, (Output{"loading Event definitions...\n", ""}));
  EXPECT_EQ(Listed(loaded.definitions), "");
  WriteFile(kFallbackDefinitionsPath, kRow);
  loaded = Load();
  EXPECT_EQ(loaded.output, (Output{kFallbackProgress, ""}));
  EXPECT_EQ(Listed(loaded.definitions), kListedRow);
}

TEST(LoadEventDefinitionsTest, FallbackIsNotReadBesideASystemFile) {
  WriteFile(kFallbackDefinitionsPath, "perf01,a,b,err\nsys05,b,c,err\n");
  const Loaded loaded = Load(kRow);
  EXPECT_EQ(loaded.output, (Output{kProgress, ""}));
  EXPECT_EQ(Listed(loaded.definitions), kListedRow);
  EXPECT_EQ(Listed(Load("").definitions), "");
}

TEST(LoadEventDefinitionsTest, FileThatCannotBeOpenedIsReportedUnderTheSystemPath) {
  std::filesystem::create_directory(kFallbackDefinitionsPath);
  EXPECT_EQ(Load().output, (Output{kFallbackProgress, kCannotOpen}));
  std::filesystem::create_directory(kSystemDefinitionsPath);
  const Loaded loaded = Load();
  EXPECT_EQ(loaded.output, (Output{kProgress, kCannotOpen}));
  EXPECT_EQ(Listed(loaded.definitions), "");
}

// --- Lines -------------------------------------------------------------------------------------

struct LineRow : Row {
  std::string contents;
  std::string listed;
  std::string reported = {};
};

class Definitions : public testing::TestWithParam<LineRow> {};

TEST_P(Definitions, AreLoaded) {
  const Loaded loaded = Load(GetParam().contents);
  EXPECT_EQ(loaded.output, (Output{kProgress, GetParam().reported}));
  EXPECT_EQ(Listed(loaded.definitions), GetParam().listed);
}

std::string Invalid(const std::string &line) { return "Invalid line format: \"" + line + "\"\n"; }
std::string Unknown(const std::string &name) { return "Unknown syslog level: " + name + "\n"; }

const LineRow kDefinitionsRows[] = {
    {"FieldsAreTrimmed", " \tperf01\t , CPU, CPU usage is high ,\twarn \n",
     "perf01|CPU|CPU usage is high|warn|4\n"},
    {"LastRowOfAnIdentifierWins", "perf01,A,first,warn\nsys05,S,other,info\nperf01,B,second,crit\n",
     "perf01|B|second|crit|2\nsys05|S|other|info|6\n"},
    {"IdentifiersAreCaseSensitive", "PERF01,A,b,warn\nperf01,C,d,err\n",
     "PERF01|A|b|warn|4\nperf01|C|d|err|3\n"},
    {"RowWithAnUnknownSeverityIsReportedAndKept", "perf01,CPU,high,warning\n",
     "perf01|CPU|high|warning|-1\n", Unknown("warning")},
    {"CommaInTheDescriptionCutsIt", "net02,NET,Lost, reconnecting,err\n",
     "net02|NET|Lost|reconnecting|-1\n", Unknown("reconnecting")},
    {"QuotesAndBackslashesDoNotProtectAComma", "net02,\"NET\",\"Lost\\, again\",err\n",
     "net02|\"NET\"|\"Lost\\|again\"|-1\n", Unknown("again\"")},
    {"FieldsBeyondTheFourthAreIgnored", "perf01,CPU,high,warn,more,,fields\n", kListedRow},
    {"EmptyFieldsCount", "perf01,,,warn\n", "perf01|||warn|4\n"},
    {"RowOfCommasDefinesTheEmptyIdentifier", ",,,\n", "||||-1\n", Unknown("")},
    {"HeaderRowIsADefinition", "id,name,description,severity\n",
     "id|name|description|severity|-1\n", Unknown("severity")},
    {"CommentIsSkippedSilently", "# id,label,description,warn\n#\n#x\n", ""},
    {"IndentedCommentIsALineLikeAnyOther", "  # a comment\n # id,label,description,warn\n",
     "# id|label|description|warn|4\n", Invalid("  # a comment")},
    {"RowOfThreeFieldsIsSkippedWithAWarning", "perf01,CPU,high\n", "", Invalid("perf01,CPU,high")},
    {"EmptyLineIsReported", "\n", "", Invalid("")},
    {"ReportQuotesTheLineInUtf8", "  say \"hi\", C:\\dir Gerät \n", "",
     Invalid("  say \\\"hi\\\", C:\\\\dir Gerät ")},
    {"LoadingGoesOnAfterBadLines", "bad\nperf01,CPU,high,warn\nworse\n", kListedRow,
     Invalid("bad") + Invalid("worse")},
    {"CarriageReturnsBelongToTheLineEnds", "bad\r\nperf01,CPU,high,warn\r\n", kListedRow,
     Invalid("bad")},
    {"LastLineNeedsNoLineFeed", "perf01,CPU,high,warn", kListedRow},
    {"ByteOrderMarkIsDroppedFromTheFirstLineOnly",
     "\xEF\xBB\xBFperf01,CPU,high,warn\n\xEF\xBB\xBFsys05,S,low,info\n",
     "perf01|CPU|high|warn|4\n\xEF\xBB\xBFsys05|S|low|info|6\n"},
    {"ByteOrderMarkBeforeACommentIsDropped", "\xEF\xBB\xBF# comment\n", ""},
    {"BytesThatAreNoUtf8AreReplaced", "perf01,CPU,\xFFhigh,warn\n",
     "perf01|CPU|\xEF\xBF\xBDhigh|warn|4\n"}};

INSTANTIATE_TEST_SUITE_P(Rows, Definitions, testing::ValuesIn(kDefinitionsRows), OutcomeOf());

// --- The catalogue -----------------------------------------------------------------------------

TEST(EventCatalogueTest, ReplacedDefinitionsAreGone) {
  EventCatalogue catalogue;
  catalogue.Replace(Load(kRow).definitions);
  EXPECT_TRUE(catalogue.IsDefined("perf01"));
  EXPECT_FALSE(catalogue.IsDefined("perf0"));
  catalogue.Replace(Load("sys05,S,low,info\n").definitions);
  EXPECT_FALSE(catalogue.IsDefined("perf01"));
  EXPECT_TRUE(catalogue.IsDefined("sys05"));
}

TEST(EventCatalogueTest, UndefinedEventGetsAnEmptyDefinitionThatStays) {
  EventCatalogue catalogue;
  EXPECT_FALSE(catalogue.IsDefined("net09"));
  const EventDefinition definition = catalogue.FindOrInsert("net09");
  EXPECT_EQ(Listed({{QString(), definition}}), "||||0\n");
  EXPECT_TRUE(catalogue.IsDefined("net09"));
}

TEST(EventCatalogueTest, IdentifierIsLookedUpAsLatin1) {
  EventCatalogue catalogue;
  catalogue.Replace(Load("ü,U,umlaut,warn\n").definitions);
  EXPECT_TRUE(catalogue.IsDefined("\xFC"));
  EXPECT_FALSE(catalogue.IsDefined("ü"));
  EXPECT_EQ(catalogue.FindOrInsert("\xFC").description.toStdString(), "umlaut");
  EXPECT_EQ(catalogue.FindOrInsert("ü").description.toStdString(), "");
}

TEST(EventCatalogueTest, ThreadsMayInsertAndLookUpAtOnce) {
  EventCatalogue catalogue;
  std::vector<std::thread> threads;
  for (const char *category : {"perf", "sys", "sec", "net"}) {
    threads.emplace_back([&, category] {
      for (int number = 0; number < 20'000; ++number) {
        const std::string id = category + std::to_string(number);
        catalogue.FindOrInsert(id);
        EXPECT_TRUE(catalogue.IsDefined(id));
      }
    });
  }
  for (std::thread &thread : threads) {
    thread.join();
  }
}

}  // namespace
}  // namespace ov
