#include "check/definitions_file.h"

#include <sys/stat.h>

#include "check/checked_files.h"
#include "support/support.h"

namespace ov {
namespace {

std::string Joined(const QStringList &texts) { return texts.join(QLatin1Char(' ')).toStdString(); }

TEST(DefinitionsFileTest, LinesAreNumberedAndTheLastOneOfAnIdentifierHolds) {
  const DefinitionsFile file = DefinitionsWith("b,1,,err\n# c,2,,err\n\na,3,,err\nb,4,,err\na,5\n");
  EXPECT_EQ(Joined(file.Ids()), "b a");
  EXPECT_EQ(file.LineOf(Q("b"))->number, 5);
  EXPECT_EQ(file.LineOf(Q("a"))->number, 4);
  EXPECT_EQ(file.LineOf(Q("c")), nullptr);
  EXPECT_EQ(file.LineOf(Q("B")), nullptr);
  EXPECT_EQ(file.Path().toStdString(), "/tmp/ov-event-def.csv");
  EXPECT_EQ(file.Lines().size(), 6);
  EXPECT_TRUE(file.Exists() && file.IsReadable());
}

TEST(DefinitionsFileTest, DefinitionHasFourColumnsOrMore) {
  const DefinitionsFile file = DefinitionsWith("a,b,c\na,b,c,d\na,b,c,d,e\n#a,b,c,d\n");
  std::string are;
  for (const DefinitionsLine &line : file.Lines()) {
    are += line.IsDefinition() ? "yes " : "no ";
  }
  EXPECT_EQ(are, "no yes yes no ");
}

TEST(DefinitionsFileTest, MissingFileHasNoLines) {
  const DefinitionsFile file(Q("/tmp/missing"));
  EXPECT_FALSE(file.Exists() || file.IsReadable());
  EXPECT_TRUE(file.Lines().isEmpty() && file.Ids().isEmpty());
}

TEST(DefinitionsFileTest, FolderAndPipeExistAndCannotBeRead) {
  ASSERT_EQ(mkfifo("/tmp/pipe", 0600), 0);
  for (const char *path : {"/tmp", "/tmp/pipe"}) {
    const DefinitionsFile file{QLatin1String(path)};
    EXPECT_TRUE(file.Exists()) << path;
    EXPECT_FALSE(file.IsReadable()) << path;
  }
}

TEST(DefinitionsFileTest, DefinitionTakesTheColumnsAndTheSeverity) {
  const DefinitionsFile file = DefinitionsWith(" id , label,text ,crit,x\nother,,,CRIT\n");
  const EventDefinition definition = DefinitionFrom(file.Lines()[0]);
  EXPECT_EQ(
      Joined({definition.id, definition.label, definition.description, definition.severityName}),
      "id label text crit");
  EXPECT_EQ(definition.severity, 2);
  EXPECT_EQ(OutputOf([&] { EXPECT_EQ(DefinitionFrom(file.Lines()[1]).severity, -1); }),
            (Output{"", ""}));
}

// --- Places ------------------------------------------------------------------------------------

struct ColumnsRow : Row {
  std::string line;
  std::vector<int> expected;  // of the columns from 0 on
};

class Columns : public testing::TestWithParam<ColumnsRow> {};

TEST_P(Columns, BeginAt) {
  const DefinitionsFile file = DefinitionsWith("\n" + GetParam().line);
  std::vector<int> columns;
  for (std::size_t column = 0; column < GetParam().expected.size(); ++column) {
    const Place place = file.PlaceOf(file.Lines()[1], static_cast<int>(column));
    EXPECT_EQ(place.file, file.Path());
    EXPECT_EQ(place.line, 2);
    EXPECT_EQ(place.source.toStdString(), GetParam().line);
    columns.push_back(place.column);
  }
  EXPECT_EQ(columns, GetParam().expected);
}

const ColumnsRow kColumns[] = {
    {"TheirFirstCharacter", "ab,c,d,err", {1, 4, 6, 8}},
    {"TheirFirstCharacterBehindBlanks", "  ab,\tc,  d, err", {3, 7, 11, 14}},
    {"TheirFirstByteBeyondAscii", "ä,€ü,x, ö", {1, 4, 10, 13}},
    {"TheCommaIfTheyAreEmpty", ",,,", {1, 2, 3, 4}},
    {"TheEndIfThereAreFewer", "a,bü", {1, 3, 6, 6, 6}},
    {"TheEndOfABlankLine", "  ", {3, 3}}};

INSTANTIATE_TEST_SUITE_P(Rows, Columns, testing::ValuesIn(kColumns), OutcomeOf());

TEST(DefinitionsFileTest, PlaceIsThatOfTheFirstColumnUnlessOneIsNamed) {
  const DefinitionsFile file = DefinitionsWith(" a,b,c,d");
  EXPECT_EQ(file.PlaceOf(file.Lines()[0]).column, 2);
}

// --- Identifiers that were probably meant ------------------------------------------------------

class MeantId : public testing::TestWithParam<TextRow> {};

TEST_P(MeantId, HasTheSameDigits) {
  const DefinitionsFile file = DefinitionsWith("perf01,,,err\nperf12,,,err\nsystem,,,err\n");
  EXPECT_EQ(file.Meant(Q(GetParam().input)).toStdString(), GetParam().expected);
}

const TextRow kMeant[] = {{"OtherLetterIsMeant", "perv01", "perf01"},
                          {"OtherDigitIsNot", "perf02", ""},
                          {"SwappedDigitsAreNot", "perf21", ""},
                          {"MissingDigitIsNot", "perf0", ""},
                          {"LaterDefinitionIsMeant", "Perf12", "perf12"},
                          {"WordWithoutDigitsIsMeant", "sistem", "system"},
                          {"DistantWordIsNot", "usb01", ""}};

INSTANTIATE_TEST_SUITE_P(Rows, MeantId, testing::ValuesIn(kMeant), OutcomeOf());

}  // namespace
}  // namespace ov
