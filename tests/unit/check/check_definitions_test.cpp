#include "check/check_definitions.h"

#include "check/checked_files.h"
#include "support/support.h"

namespace ov {
namespace {

Findings FoundInDefinitions(const std::string &definitions) {
  Findings findings;
  CheckDefinitions(DefinitionsWith(definitions), findings);
  return findings;
}

class PlacesInDefinitions : public testing::TestWithParam<TextRow> {};

TEST_P(PlacesInDefinitions, AreExact) {
  EXPECT_EQ(Places(FoundInDefinitions(GetParam().input)), GetParam().expected);
}

const TextRow kDefinitionsPlaces[] = {
    {"ValidFileHasNone", "# comment\n\n  \nperf01, CPU, Processor, warn\nsys05,,,debug\n", ""},
    {"IndentedHashIsFound", " # a\n\t#", "indented-comment 1:2|indented-comment 2:2"},
    {"SemicolonIsFound", ";a\n ;,,,err", "indented-comment 1:1|indented-comment 2:2"},
    {"SlashesAreFound", "// a,,,err", "indented-comment 1:1"},
    {"OneSlashIsAnIdentifier", "/a,,,err", ""},
    {"HashWithinIsNone", "a#,,,err", ""},
    {"TooFewColumnsAreFound", "a\n b,c\na,b,c",
     "too-few-columns 1:1|too-few-columns 2:2|too-few-columns 3:1"},
    {"CommasAloneAreAnEmptyIdentifier", ",,,err", "bad-id 1:1"},
    {"FifthColumnIsFound", "a,b,c,err, x", "too-many-columns 1:12"},
    {"FifthColumnHidesTheSeverity", "a,b,c,d,err", "too-many-columns 1:9"},
    {"UnknownSeverityIsFound", "a,b,c, error", "unknown-severity 1:8"},
    {"SeverityInCapitalsIsFound", "a,b,c,ERR", "unknown-severity 1:7"},
    {"EmptySeverityIsFound", "a,b,c,", "unknown-severity 1:7"},
    {"EarlierLineIsFound", "a,,,err\nb,,,err\na,,,x", "repeated-id 1:1|unknown-severity 3:5"},
    {"EarlierLineIsNotLookedIntoFurther", "a,,,x\na,,,err,x\na,,,err",
     "repeated-id 1:1|repeated-id 2:1"},
    {"SevenCharactersAreAnIdentifier", "abcdefg,,,err", ""},
    {"EightCharactersAreFound", "abcdefgh,,,err", "bad-id 1:1"},
    {"BlankWithinIsFound", "a b,,,err", "bad-id 1:1"},
    {"DoubleQuoteIsFound", "\"a\",,,err", "bad-id 1:1"},
    {"ControlCharacterIsFound", "a\x01,,,err", "bad-id 1:1"},
    {"DeleteIsFound", "a\x7f,,,err", "bad-id 1:1"},
    {"CharacterBeyondAsciiIsFound", "ä,,,err", "bad-id 1:1"},
    {"FirstAndLastVisibleCharactersAreAnIdentifier", "!~,,,err", ""},
    {"BadIdentifierHidesNoSeverity", "a b,,,x", "bad-id 1:1|unknown-severity 1:7"}};

INSTANTIATE_TEST_SUITE_P(Rows, PlacesInDefinitions, testing::ValuesIn(kDefinitionsPlaces),
                         OutcomeOf());

const TextRow kHeaders[] = {
    {"IdIsFound", "ID,a,b,c", "header-row 1:1"},
    {"EventIdIsFound", "event id,a,b,c", "header-row 1:1"},
    {"EventIdWithAnUnderscoreIsFound", "Event_ID,a,b,c", "header-row 1:1"},
    {"EventIdWithADashIsFound", "event-id,a,b,c", "header-row 1:1"},
    {"EventIdInOneWordIsFound", "eventid,a,b,c", "header-row 1:1"},
    {"IdentifierIsFound", "identifier,a,b,c", "header-row 1:1"},
    {"CodeIsFound", "code,a,b,c", "header-row 1:1"},
    {"EventIsFound", "event,a,b,c", "header-row 1:1"},
    {"SeverityIsFound", "x,a,b,Severity", "header-row 1:1"},
    {"LevelIsFound", "x,a,b,level 0-7", "header-row 1:1"},
    {"PriorityIsFound", "x,a,b,priority", "header-row 1:1"},
    {"KnownSeverityMakesAnEvent", "id,a,b,err", ""},
    {"WordThatOnlyHoldsIdIsNone", "ids,a,b,c", "unknown-severity 1:9"},
    {"WordThatOnlyHoldsSeverityIsNone", "x,a,b,a level", "unknown-severity 1:7"}};

INSTANTIATE_TEST_SUITE_P(Headers, PlacesInDefinitions, testing::ValuesIn(kHeaders), OutcomeOf());

class SentencesAboutDefinitions : public testing::TestWithParam<TextRow> {};

TEST_P(SentencesAboutDefinitions, AreExact) {
  EXPECT_EQ(Sentences(FoundInDefinitions(GetParam().input)), GetParam().expected);
}

const TextRow kDefinitionsSentences[] = {
    {"IndentedComment", " #a,b",
     "indented-comment: a comment begins with \"#\" in the first column: the service takes this "
     "line for a definition. Begin it so <#a>"},
    {"TooFewColumns", "a,b",
     "too-few-columns: the line has 2 of 4 columns, and the service passes over it. Write "
     "identifier, label, description and severity, with commas between them <a>"},
    {"HeaderRow", "id,a,b,c",
     "header-row: the service takes this line for the definition of an event \"id\". Put a \"#\" "
     "before it <id>"},
    {"EmptyIdentifier", ",,,err",
     "bad-id: the identifier is empty: `allowed` cannot name the event. Write one of 1 to 7 "
     "letters and digits <>"},
    {"IdentifierWithABlank", "a b,,,err",
     "bad-id: \"a b\" holds a blank, a control character, a double quote or a character beyond "
     "ASCII: `allowed` separates at blanks, double quotes are part of the text here, and a record "
     "names an event by bytes of Latin-1. Use letters and digits alone <a b>"},
    {"IdentifierThatIsTooLong", "abcdefgh,,,err",
     "bad-id: \"abcdefgh\" is longer than 7 bytes: a record holds \"abcdefg\" instead, and nobody "
     "can raise this event. Use a shorter identifier <abcdefgh abcdefg>"},
    {"RepeatedIdentifier", "a,,,err\n\na,,,err",
     "repeated-id: line 3 defines \"a\" once more, and the last line holds. Remove one of them "
     "<a>"},
    {"TooManyColumns", "a,b,c,d,err",
     "too-many-columns: the line has 5 columns, and the service takes the fourth, \"d\", for the "
     "severity. Remove the comma from the text: quotes do not help <a>"},
    {"SeverityThatIsMeant", "a,b,c,warning",
     "unknown-severity: the service does not know the severity \"warning\" and counts it as -1: "
     "the priority is one below that of emerg. Write warn <a>"},
    {"SeverityInCapitals", "a,b,c,ERR",
     "unknown-severity: the service does not know the severity \"ERR\" and counts it as -1: the "
     "priority is one below that of emerg. Write err <a>"},
    {"SeverityByItsNumber", "a,b,c,7",
     "unknown-severity: the service does not know the severity \"7\" and counts it as -1: the "
     "priority is one below that of emerg. Write debug <a>"},
    {"SeverityByAnUnknownNumber", "a,b,c,8",
     "unknown-severity: the service does not know the severity \"8\" and counts it as -1: the "
     "priority is one below that of emerg. Write one of emerg alert crit err warn notice info "
     "debug <a>"},
    {"SeverityLikeNoOther", "a,b,c,xyz",
     "unknown-severity: the service does not know the severity \"xyz\" and counts it as -1: the "
     "priority is one below that of emerg. Write one of emerg alert crit err warn notice info "
     "debug <a>"}};

INSTANTIATE_TEST_SUITE_P(Rows, SentencesAboutDefinitions, testing::ValuesIn(kDefinitionsSentences),
                         OutcomeOf());

TEST(CheckDefinitionsTest, MissingFileIsTheOnlyFinding) {
  Findings findings;
  CheckDefinitions(DefinitionsFile(Q("/tmp/missing")), findings);
  EXPECT_EQ(Places(findings), "no-definitions 0:0");
  EXPECT_EQ(findings.Sorted()[0].place.file.toStdString(), "/tmp/missing");
}

TEST(CheckDefinitionsTest, FolderIsTheOnlyFinding) {
  Findings findings;
  CheckDefinitions(DefinitionsFile(Q("/tmp")), findings);
  EXPECT_EQ(Places(findings), "unreadable-definitions 0:0");
}

TEST(CheckDefinitionsTest, FallbackIsUnusedBesideTheSystemFileAlone) {
  WriteFile(kSystemDefinitionsPath, "");
  const DefinitionsFile system{QLatin1String(kSystemDefinitionsPath)};
  Findings alone;
  CheckDefinitions(system, alone);
  EXPECT_EQ(Places(alone), "");
  WriteFile(kFallbackDefinitionsPath, "");
  Findings beside;
  CheckDefinitions(system, beside);
  EXPECT_EQ(Places(beside), "fallback-unused 0:0");
  EXPECT_EQ(beside.Sorted()[0].place.file.toStdString(), kFallbackDefinitionsPath);
  std::filesystem::remove(kSystemDefinitionsPath);
}

}  // namespace
}  // namespace ov
