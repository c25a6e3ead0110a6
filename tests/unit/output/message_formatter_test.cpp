#include "output/message_formatter.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <array>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <limits>
#include <random>
#include <string>
#include <vector>

namespace ov {
namespace {

constexpr std::int64_t kSmallest64 = std::numeric_limits<std::int64_t>::min();
constexpr std::int64_t kLargest64 = std::numeric_limits<std::int64_t>::max();

void SetTimeZone(const char *zone) {
  setenv("TZ", zone, 1);
  tzset();
}

QString Q(const std::string &text) { return QString::fromStdString(text); }

// --- Cutting -----------------------------------------------------------------------------------

std::vector<std::string> PiecesOf(const std::string &text) {
  MessageFormatter formatter;
  formatter.SetTemplate(Q(text));
  std::vector<std::string> pieces;
  for (const QString &piece : formatter.Pieces()) {
    pieces.push_back(piece.toStdString());
  }
  return pieces;
}

// The cut said in another way: around the first occurrence of a token, both sides are cut anew.
std::vector<std::string> ExpectedPieces(const std::string &text, std::size_t tokenIndex = 0) {
  static const std::array<std::string, 8> kTokens = {"[PRI]", "[DATE]", "[ID]",   "[DESC]",
                                                     "[VAL]", "[SEV]",  "[NAME]", "[IP]"};
  if (tokenIndex == kTokens.size()) {
    return {text};
  }
  const std::string &token = kTokens.at(tokenIndex);
  const std::size_t found = text.find(token);
  if (found == std::string::npos) {
    return ExpectedPieces(text, tokenIndex + 1);
  }
  std::vector<std::string> pieces = ExpectedPieces(text.substr(0, found), tokenIndex);
  pieces.push_back(token);
  for (std::string &piece : ExpectedPieces(text.substr(found + token.size()), tokenIndex)) {
    pieces.push_back(std::move(piece));
  }
  return pieces;
}

TEST(TemplateTest, HasNoPiecesAtFirst) { EXPECT_EQ(MessageFormatter().Pieces(), QStringList()); }

TEST(TemplateTest, EmptyTextIsOneEmptyPiece) {
  EXPECT_THAT(PiecesOf(""), testing::ElementsAre(""));
}

TEST(TemplateTest, TextWithoutTokensIsOnePiece) {
  EXPECT_THAT(PiecesOf("plain text"), testing::ElementsAre("plain text"));
}

TEST(TemplateTest, TokenIsCutFromTheTextAroundIt) {
  EXPECT_THAT(PiecesOf("<[PRI]>"), testing::ElementsAre("<", "[PRI]", ">"));
}

TEST(TemplateTest, EmptyStretchesArePieces) {
  EXPECT_THAT(PiecesOf("[VAL][VAL]"), testing::ElementsAre("", "[VAL]", "", "[VAL]", ""));
}

TEST(TemplateTest, TokensMayStandInAnyOrder) {
  EXPECT_THAT(PiecesOf("[IP] [PRI]"), testing::ElementsAre("", "[IP]", " ", "[PRI]", ""));
}

TEST(TemplateTest, AllEightTokensAreKnown) {
  EXPECT_THAT(PiecesOf("[IP][NAME][SEV][VAL][DESC][ID][DATE][PRI]"),
              testing::ElementsAre("", "[IP]", "", "[NAME]", "", "[SEV]", "", "[VAL]", "", "[DESC]",
                                   "", "[ID]", "", "[DATE]", "", "[PRI]", ""));
}

TEST(TemplateTest, WhatResemblesATokenIsLiteral) {
  const std::string text = "[pri] [Pri] [HOST] [PRI [[] DATE] [ ID] []";
  EXPECT_THAT(PiecesOf(text), testing::ElementsAre(text));
}

TEST(TemplateTest, TokenInsideATokenLeavesTwoLiterals) {
  EXPECT_THAT(PiecesOf("[DA[PRI]TE]"), testing::ElementsAre("[DA", "[PRI]", "TE]"));
}

TEST(TemplateTest, NewTemplateReplacesTheOld) {
  MessageFormatter formatter;
  formatter.SetTemplate(QStringLiteral("old [PRI]"));
  formatter.SetTemplate(QStringLiteral("new"));
  EXPECT_EQ(formatter.Pieces(), QStringList{QStringLiteral("new")});
}

TEST(TemplateTest, RandomTemplatesAreCutAsByRecursion) {
  const std::vector<std::string> fragments = {
      "[PRI]", "[DATE]", "[ID]", "[DESC]", "[VAL]", "[SEV]", "[NAME]", "[IP]", "[", "]",
      "[P",    "RI]",    "I",    "[pri]",  "[DA",   "TE]",   " ",      "x",    "ü", "[["};
  std::mt19937 random(1);  // the same templates in every run
  for (int round = 0; round < 3000; ++round) {
    std::string text;
    for (auto left = random() % 20; left > 0; --left) {
      text += fragments.at(random() % fragments.size());
    }
    ASSERT_EQ(PiecesOf(text), ExpectedPieces(text)) << text;
  }
}

TEST(TemplateTest, TwoHundredThousandTokensAreCut) {
  constexpr int kTokens = 200'000;
  MessageFormatter formatter;
  formatter.SetTemplate(QStringLiteral("[IP][PRI]").repeated(kTokens / 2));
  EXPECT_EQ(formatter.Pieces().size(), 2 * kTokens + 1);
}

// --- Rendering ---------------------------------------------------------------------------------

std::string Rendered(const std::string &text, const TokenValues &values) {
  MessageFormatter formatter;
  formatter.SetTemplate(Q(text));
  return formatter.Render(values).toStdString();
}

TEST(RenderTest, IsEmptyBeforeATemplateIsSet) {
  EXPECT_EQ(MessageFormatter().Render({{Q("[ID]"), Q("perf01")}}).toStdString(), "");
}

TEST(RenderTest, TemplateWithoutTokensIsTheLine) {
  EXPECT_EQ(Rendered("plain text", {{Q("[ID]"), Q("perf01")}}), "plain text");
}

TEST(RenderTest, TokensAreReplacedByTheirValues) {
  EXPECT_EQ(Rendered("<[PRI]> [ID]!", {{Q("[PRI]"), Q("28")}, {Q("[ID]"), Q("perf01")}}),
            "<28> perf01!");
}

TEST(RenderTest, TokenMayOccurTwice) {
  EXPECT_EQ(Rendered("[PRI][PRI]", {{Q("[PRI]"), Q("28")}}), "2828");
}

TEST(RenderTest, TokenWithoutAValueStays) {
  EXPECT_EQ(Rendered("[PRI] [ID]", {{Q("[PRI]"), Q("28")}}), "28 [ID]");
}

TEST(RenderTest, EmptyValueLeavesNothing) {
  EXPECT_EQ(Rendered("([VAL])", {{Q("[VAL]"), QString()}}), "()");
}

TEST(RenderTest, ValuesAreNotExpandedAgain) {
  EXPECT_EQ(Rendered("[DESC] [IP]", {{Q("[DESC]"), Q("[IP]")}, {Q("[IP]"), Q("[DESC]")}}),
            "[IP] [DESC]");
}

TEST(RenderTest, TokenMadeByNeighbouringPiecesIsNotExpanded) {
  EXPECT_EQ(Rendered("[[ID]]", {{Q("[ID]"), Q("IP")}, {Q("[IP]"), Q("never")}}), "[IP]");
}

TEST(RenderTest, LiteralIsNotReplacedThoughAValueBearsItsName) {
  EXPECT_EQ(Rendered("[HOST]", {{Q("[HOST]"), Q("never")}}), "[HOST]");
}

TEST(RenderTest, LongValueIsInsertedWhole) {
  const std::string value(100'000, 'v');
  EXPECT_TRUE(Rendered("([VAL])", {{Q("[VAL]"), Q(value)}}) == "(" + value + ")");
}

TEST(RenderTest, SpacesAtTheEndsAreKept) {
  EXPECT_EQ(Rendered("  [ID]  ", {{Q("[ID]"), Q(" a ")}}), "   a   ");
}

// --- Priority ----------------------------------------------------------------------------------

struct Priority {
  std::int32_t facility;
  std::int32_t severity;
  std::string text;
};

void PrintTo(const Priority &priority, std::ostream *stream) {
  *stream << priority.facility << " * 8 + " << priority.severity;
}

class PriorityTest : public testing::TestWithParam<Priority> {};

TEST_P(PriorityTest, IsEightTimesTheFacilityPlusTheSeverity) {
  EXPECT_EQ(FormatPriority(GetParam().facility, GetParam().severity).toStdString(),
            GetParam().text);
}

INSTANTIATE_TEST_SUITE_P(
    Numbers, PriorityTest,
    testing::Values(Priority{0, 0, "0"}, Priority{16, 4, "132"}, Priority{3, 7, "31"},
                    Priority{23, 7, "191"}, Priority{3, -1, "23"}, Priority{0, -1, "-1"},
                    Priority{-2, 3, "-13"}, Priority{1000, 0, "8000"},
                    // The last sum that fits, and those that wrap around.
                    Priority{268435455, 7, "2147483647"}, Priority{268435456, 0, "-2147483648"},
                    Priority{-268435456, -1, "2147483647"}, Priority{2147483647, 7, "-1"},
                    Priority{-2147483647 - 1, 7, "7"}));

// --- Date --------------------------------------------------------------------------------------

TEST(DateTest, IsMonthDayAndTime) {
  SetTimeZone("UTC");
  EXPECT_EQ(FormatDate(1700000000).toStdString(), "Nov 14 22:13:20");
}

TEST(DateTest, DayBelowTenHasALeadingZero) {
  SetTimeZone("UTC");
  EXPECT_EQ(FormatDate(4 * 86400 + 3723).toStdString(), "Jan 05 01:02:03");
}

TEST(DateTest, MidnightIsZeroHours) {
  SetTimeZone("UTC");
  EXPECT_EQ(FormatDate(1700006400).toStdString(), "Nov 15 00:00:00");
}

TEST(DateTest, HoursRunTo23) {
  SetTimeZone("UTC");
  EXPECT_EQ(FormatDate(-1).toStdString(), "Dec 31 23:59:59");
}

TEST(DateTest, MonthsHaveTheirEnglishAbbreviations) {
  SetTimeZone("UTC");
  std::vector<std::string> months;
  for (std::int64_t month = 0; month < 12; ++month) {
    const std::int64_t middle = 1704067200 + (15 + month * 30) * 86400;  // of months of 2024
    months.push_back(FormatDate(middle).toStdString().substr(0, 3));
  }
  EXPECT_THAT(months, testing::ElementsAre("Jan", "Feb", "Mar", "Apr", "May", "Jun", "Jul", "Aug",
                                           "Sep", "Oct", "Nov", "Dec"));
}

TEST(DateTest, LeapDayExists) {
  SetTimeZone("UTC");
  EXPECT_EQ(FormatDate(1709208000).toStdString(), "Feb 29 12:00:00");
}

TEST(DateTest, TimeBeyond2038IsKept) {
  SetTimeZone("UTC");
  EXPECT_EQ(FormatDate(4102444800).toStdString(), "Jan 01 00:00:00");
}

TEST(DateTest, TimeIsLocal) {
  SetTimeZone("XXX-5:30");
  EXPECT_EQ(FormatDate(1700000000).toStdString(), "Nov 15 03:43:20");
}

TEST(DateTest, SummerTimeCounts) {
  SetTimeZone("CET-1CEST,M3.5.0,M10.5.0/3");
  EXPECT_EQ(FormatDate(1688212800).toStdString(), "Jul 01 14:00:00");
}

TEST(DateTest, ChangeOfTheTimeZoneTakesEffect) {
  SetTimeZone("UTC");
  const std::string before = FormatDate(1700000000).toStdString();
  SetTimeZone("EST5");
  EXPECT_EQ(before + ", " + FormatDate(1700000000).toStdString(),
            "Nov 14 22:13:20, Nov 14 17:13:20");
}

// What is no date is cut to 64 bits of milliseconds: one second before the epoch, and the epoch.
TEST(DateTest, LargestTimeWrapsAround) {
  SetTimeZone("UTC");
  EXPECT_EQ(FormatDate(kLargest64).toStdString(), "Dec 31 23:59:59");
}

TEST(DateTest, SmallestTimeWrapsAround) {
  SetTimeZone("UTC");
  EXPECT_EQ(FormatDate(kSmallest64).toStdString(), "Jan 01 00:00:00");
}

// In a process of its own: the system's locale is looked up once. The environment is all it takes.
TEST(DateDeathTest, MonthIsThatOfTheSystemsLocale) {
  testing::FLAGS_gtest_death_test_style = "threadsafe";
  const auto printGermanDate = [] {
    setenv("LC_ALL", "de_DE.UTF-8", 1);
    SetTimeZone("UTC");
    std::fputs(FormatDate(1714867200).toUtf8().constData(), stderr);
    std::_Exit(0);
  };
  EXPECT_EXIT(printGermanDate(), testing::ExitedWithCode(0), "^Mai 05 00:00:00$");
}

TEST(DateMemoTest, GivesWhatFormatDateGives) {
  SetTimeZone("UTC");
  DateMemo memo;
  for (const std::int64_t seconds :
       {std::int64_t{0}, std::int64_t{0}, std::int64_t{1700000000}, std::int64_t{1700000000},
        std::int64_t{0}, std::int64_t{1700000001}, kLargest64, kSmallest64, std::int64_t{-1}}) {
    EXPECT_EQ(memo.Text(seconds).toStdString(), FormatDate(seconds).toStdString()) << seconds;
  }
}

TEST(DateMemoTest, RemembersTheTextOfTheLastTime) {
  SetTimeZone("UTC");
  DateMemo memo;
  memo.Text(1700000000);
  SetTimeZone("EST5");
  EXPECT_EQ(memo.Text(1700000000).toStdString(), "Nov 14 22:13:20");
}

TEST(DateMemoTest, NewMemoSeesTheNewTimeZone) {
  SetTimeZone("UTC");
  DateMemo().Text(1700000000);
  SetTimeZone("EST5");
  EXPECT_EQ(DateMemo().Text(1700000000).toStdString(), "Nov 14 17:13:20");
}

// --- Whole lines -------------------------------------------------------------------------------

class FormatEventTest : public testing::Test {
 protected:
  FormatEventTest() {
    SetTimeZone("UTC");
    record_.time = 1700000000;
  }

  std::string Line(const std::string &text) {
    MessageFormatter formatter;
    formatter.SetTemplate(Q(text));
    return formatter.FormatEvent(record_, definition_, context_).toStdString();
  }

  EventRecord record_ = MakeEventRecord("perf01", "95,80");
  EventDefinition definition_{Q("perf01"), Q("CPU"), Q("CPU usage is high"), Q("warn")};
  LineContext context_{16, Q("tc-0042"), Q("192.168.1.20"), {}};
};

TEST_F(FormatEventTest, GivesTheFullLine) {
  EXPECT_EQ(Line("<[PRI]> [DATE] [NAME]([IP]): [ID] [DESC] - [VAL] ([SEV])"),
            "<132> Nov 14 22:13:20 tc-0042(192.168.1.20): perf01 CPU usage is high - 95,80 (warn)");
}

TEST_F(FormatEventTest, EmptyValuesGiveAnEmptyLine) {
  record_ = MakeEventRecord("perf01", nullptr);
  EXPECT_EQ(Line("[VAL]"), "");
}

TEST_F(FormatEventTest, DescriptionIsNotExpanded) {
  definition_.description = Q("at [DATE]");
  EXPECT_EQ(Line("[DESC]"), "at [DATE]");
}

TEST_F(FormatEventTest, ValuesAreNotExpanded) {
  record_ = MakeEventRecord("perf01", "[IP],[ID]");
  EXPECT_EQ(Line("[VAL]"), "[IP],[ID]");
}

TEST_F(FormatEventTest, SeverityNameIsThatOfTheDefinition) {
  definition_.severityName = Q("Warning");
  EXPECT_EQ(Line("[SEV]"), "Warning");
}

TEST_F(FormatEventTest, UnknownSeverityTakesOneFromThePriority) {
  definition_.severity = -1;
  EXPECT_EQ(Line("<[PRI]>"), "<127>");
}

TEST_F(FormatEventTest, EmptyDefinitionLeavesItsTokensEmpty) {
  definition_ = EventDefinition();
  EXPECT_EQ(Line("<[PRI]>[ID]/[DESC]/[SEV]"), "<128>perf01//");
}

TEST_F(FormatEventTest, IdIsThatOfTheRecord) {
  definition_.id = Q("other");
  EXPECT_EQ(Line("[ID]"), "perf01");
}

TEST_F(FormatEventTest, RecordTextsAreUtf8) {
  record_ = MakeEventRecord("gerät", "☃,ü");
  EXPECT_EQ(Line("[ID]: [VAL]"), "gerät: ☃,ü");
}

TEST_F(FormatEventTest, ByteThatIsNotUtf8IsReplaced) {
  record_ = MakeEventRecord("perf01", "a\xFFz");
  EXPECT_EQ(Line("[VAL]"), "a\xEF\xBF\xBDz");
}

TEST_F(FormatEventTest, IdWithoutNulRunsOnIntoTheValues) {
  record_.id.fill('i');
  EXPECT_EQ(Line("[ID]|[VAL]"), "iiiiiiii95,80|95,80");
}

TEST_F(FormatEventTest, RecordWithoutNulEndsWithTheRecord) {
  std::array<EventRecord, 2> records;
  std::memset(static_cast<void *>(&records), 'x', sizeof(records));
  record_ = records[0];
  EXPECT_EQ(Line("[ID]|[VAL]"), std::string(144, 'x') + "|" + std::string(136, 'x'));
}

TEST_F(FormatEventTest, ContextIsGoodForMoreThanOneTime) {
  const std::string first = Line("[DATE]");
  record_.time += 1;
  EXPECT_EQ(first + ", " + Line("[DATE]"), "Nov 14 22:13:20, Nov 14 22:13:21");
}

}  // namespace
}  // namespace ov
