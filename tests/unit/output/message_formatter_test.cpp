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

#include "support/time_zone.h"

namespace ov {
namespace {

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
