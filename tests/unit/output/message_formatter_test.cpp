#include "output/message_formatter.h"

#include <cstdlib>
#include <ctime>
#include <limits>
#include <random>
#include <tuple>

#include "support/support.h"

namespace ov {
namespace {

QString Q(const std::string &text) { return QString::fromStdString(text); }

std::string Rendered(const std::string &text, const TokenValues &values) {
  MessageFormatter formatter;
  formatter.SetTemplate(Q("an earlier [ID]"));
  formatter.SetTemplate(Q(text));
  return formatter.Render(values).toStdString();
}

// --- Templates ---------------------------------------------------------------------------------

class Template : public testing::TestWithParam<TextRow> {};

TEST_P(Template, IsRendered) {
  const TokenValues values = {{Q("[PRI]"), Q("28")},   {Q("[DATE]"), Q("Nov 14")},
                              {Q("[ID]"), Q("IP")},    {Q("[DESC]"), Q("[IP] [DATE]")},
                              {Q("[VAL]"), QString()}, {Q("[SEV]"), Q(" warn ")},
                              {Q("[IP]"), Q("1.2")},   {Q("[HOST]"), Q("never")}};
  EXPECT_EQ(Rendered(GetParam().input, values), GetParam().expected);
}

const TextRow kTextRows[] = {
    {"EmptyTemplateGivesAnEmptyLine", "", ""},
    {"TemplateWithoutTokensIsTheLine", "  plain text ", "  plain text "},
    {"AllEightTokensAreKnown", "[IP][SEV][VAL][DESC][ID][DATE][PRI][NAME]",
     "1.2 warn [IP] [DATE]IPNov 1428[NAME]"},
    {"TokenMayOccurTwice", "[PRI][PRI]", "2828"},
    {"TokenWithoutAValueStays", "<[NAME]>", "<[NAME]>"},
    {"EmptyValueLeavesNothing", "([VAL])", "()"},
    {"ValuesAreNotExpandedAgain", "[DESC] [IP]", "[IP] [DATE] 1.2"},
    {"ValueBetweenBracketsMakesNoToken", "[[ID]]", "[IP]"},
    {"TokenInsideATokenIsReplaced", "[DA[PRI]TE]", "[DA28TE]"},
    {"LowerCaseTokenIsLiteral", "[pri] [Pri]", "[pri] [Pri]"},
    {"UnknownWordIsLiteralThoughItHasAValue", "[HOST]", "[HOST]"},
    {"IncompleteTokensAreLiteral", "[PRI [[] DATE] [ ID] []", "[PRI [[] DATE] [ ID] []"}};

INSTANTIATE_TEST_SUITE_P(Rows, Template, testing::ValuesIn(kTextRows), OutcomeOf());

TEST(TemplateTest, LineIsEmptyBeforeATemplateIsSet) {
  EXPECT_EQ(MessageFormatter().Render({{Q("[ID]"), Q("perf01")}}).toStdString(), "");
}

const std::array<std::string, 8> kTokens = {"[PRI]", "[DATE]", "[ID]",   "[DESC]",
                                            "[VAL]", "[SEV]",  "[NAME]", "[IP]"};

// The rule said in another way: the first token that occurs is replaced by its place in the list,
// and both sides of it are treated alike.
std::string ExpectedLine(const std::string &text, std::size_t token = 0) {
  if (token == kTokens.size()) {
    return text;
  }
  const std::size_t found = text.find(kTokens.at(token));
  return found == std::string::npos
             ? ExpectedLine(text, token + 1)
             : ExpectedLine(text.substr(0, found), token) + std::to_string(token) +
                   ExpectedLine(text.substr(found + kTokens.at(token).size()), token);
}

TEST(TemplateTest, RandomTemplatesAreCutInTheOrderOfTheTokens) {
  TokenValues places;
  std::vector<std::string> fragments = {"[", "]", "[P", "RI]", "I", "[DA", "TE]", " ", "ü", "[["};
  for (std::size_t token = 0; token < kTokens.size(); ++token) {
    places.insert(Q(kTokens.at(token)), QString::number(token));
    fragments.push_back(kTokens.at(token));
  }
  std::mt19937 random(1);  // the same templates in every run
  for (int round = 0; round < 2000; ++round) {
    std::string text;
    for (auto left = random() % 20; left > 0; --left) {
      text += fragments.at(random() % fragments.size());
    }
    ASSERT_EQ(Rendered(text, places), ExpectedLine(text)) << text;
  }
}

// --- Whole lines -------------------------------------------------------------------------------

class FormatEventTest : public testing::Test {
 protected:
  FormatEventTest() { record_.time = 1700000000; }

  std::string Line(const std::string &text) {
    MessageFormatter formatter;
    formatter.SetTemplate(Q(text));
    return formatter.FormatEvent(record_, definition_, context_).toStdString();
  }

  EventRecord record_ = MakeEventRecord("perf01", "95,80");
  EventDefinition definition_{Q("other"), Q("CPU"), Q("CPU usage is high"), Q("warn")};
  LineContext context_{16, {Q("192.168.1.20"), Q("tc-0042")}, {}};
};

TEST_F(FormatEventTest, DefaultTemplateGivesTheFullLine) {
  EXPECT_EQ(Line("<[PRI]> [DATE] [NAME]([IP]): [ID] [DESC] - [VAL] ([SEV])"),
            "<132> Nov 14 22:13:20 tc-0042(192.168.1.20): perf01 CPU usage is high - 95,80 (warn)");
}

TEST_F(FormatEventTest, TextsAreNotExpandedAndNoValuesGiveAnEmptyLine) {
  definition_.description = Q("at [DATE]");
  record_ = MakeEventRecord("perf01", "[IP],[ID]");
  EXPECT_EQ(Line("[DESC] [VAL]"), "at [DATE] [IP],[ID]");
  record_ = MakeEventRecord("perf01", nullptr);
  EXPECT_EQ(Line("[VAL]"), "");
}

TEST_F(FormatEventTest, UnknownSeverityTakesOneFromThePriorityAndKeepsItsName) {
  definition_.severity = -1;
  definition_.severityName = Q("Warning");
  EXPECT_EQ(Line("<[PRI]> [SEV]"), "<127> Warning");
}

TEST_F(FormatEventTest, EmptyDefinitionLeavesItsTokensEmpty) {
  definition_ = EventDefinition();
  EXPECT_EQ(Line("<[PRI]>[ID]/[DESC]/[SEV]"), "<128>perf01//");
}

TEST_F(FormatEventTest, TextsOfTheRecordAreUtf8WithOtherBytesReplaced) {
  record_ = MakeEventRecord("gerät", "☃,a\xFFz");
  EXPECT_EQ(Line("[ID]: [VAL]"), "gerät: ☃,a\xEF\xBF\xBDz");
}

TEST_F(FormatEventTest, EachEventOfAPassHasItsOwnTime) {
  std::string dates;
  for (const std::int64_t time : {0, 0, 86400, 0}) {
    record_.time = time;
    dates += Line("[DATE];");
  }
  EXPECT_EQ(dates, "Jan 01 00:00:00;Jan 01 00:00:00;Jan 02 00:00:00;Jan 01 00:00:00;");
}

// --- Priority ----------------------------------------------------------------------------------

TEST(PriorityTest, PriorityIsEightTimesTheFacilityPlusTheSeverityIn32Bits) {
  const std::tuple<std::int32_t, std::int32_t, const char *> rows[] = {
      {0, 0, "0"},
      {16, 4, "132"},
      {3, 7, "31"},
      {23, 7, "191"},
      {3, -1, "23"},
      {0, -1, "-1"},
      {-2, 3, "-13"},
      {1000, 0, "8000"},
      // The last sum that fits, and those that wrap around.
      {268435455, 7, "2147483647"},
      {268435456, 0, "-2147483648"},
      {-268435456, -1, "2147483647"},
      {2147483647, 7, "-1"},
      {-2147483647 - 1, 7, "7"}};
  for (const auto &[facility, severity, priority] : rows) {
    EXPECT_EQ(FormatPriority(facility, severity).toStdString(), priority);
  }
}

// --- Date --------------------------------------------------------------------------------------

struct DateRow : Row {
  std::int64_t seconds;
  std::string text;
  const char *zone = "UTC";
};

class Date : public testing::TestWithParam<DateRow> {};

TEST_P(Date, IsFormatted) {
  FormatDate(0);  // in the time zone before
  setenv("TZ", GetParam().zone, 1);
  tzset();
  EXPECT_EQ(FormatDate(GetParam().seconds).toStdString(), GetParam().text);
}

TEST(DateMemoTest, OnePassWritesEqualTimesInOneZone) {
  DateMemo pass;
  EXPECT_EQ(pass.Text(0).toStdString(), "Jan 01 00:00:00");
  setenv("TZ", "XXX-1", 1);
  tzset();
  EXPECT_EQ(pass.Text(0).toStdString(), "Jan 01 00:00:00");
  EXPECT_EQ(DateMemo().Text(0).toStdString(), "Jan 01 01:00:00");
}

const DateRow kDateRows[] = {
    {"DateIsMonthDayAndTime", 1700000000, "Nov 14 22:13:20"},
    {"DayBelowTenHasALeadingZero", 4 * 86400 + 3723, "Jan 05 01:02:03"},
    {"MidnightIsZeroHours", 1700006400, "Nov 15 00:00:00"},
    {"HoursRunTo23", -1, "Dec 31 23:59:59"},
    {"LeapDayExists", 1709208000, "Feb 29 12:00:00"},
    {"TimeBeyond2038IsKept", 4102444800, "Jan 01 00:00:00"},
    {"TimeIsLocal", 1700000000, "Nov 15 03:43:20", "XXX-5:30"},
    {"SummerTimeCounts", 1688212800, "Jul 01 14:00:00", "CET-1CEST,M3.5.0,M10.5.0/3"},
    // What is no date is cut to 64 bits of milliseconds.
    {"LargestTimeWrapsToASecondBeforeTheEpoch", std::numeric_limits<std::int64_t>::max(),
     "Dec 31 23:59:59"},
    {"SmallestTimeWrapsToTheEpoch", std::numeric_limits<std::int64_t>::min(), "Jan 01 00:00:00"}};

INSTANTIATE_TEST_SUITE_P(Rows, Date, testing::ValuesIn(kDateRows), OutcomeOf());

}  // namespace
}  // namespace ov
