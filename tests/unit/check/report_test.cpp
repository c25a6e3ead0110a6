#include "check/report.h"

#include <QJsonDocument>

#include "check/checked_files.h"
#include "support/support.h"

namespace ov {
namespace {

Findings OneOfEach() {
  Findings findings;
  findings.Add("no-host", {Q("/ü"), 3, 2, "äx"}, Q("Größe."), {Q("a1"), Q("a2")});
  findings.Add("month-names", {}, Q("b"));
  findings.Add("fallback-unused", {Q("/f"), 0, 0, {}}, Q("c"));
  return findings;
}

TEST(FindingsAsTextTest, FindingIsALineWithItsPlaceAndItsCause) {
  EXPECT_EQ(FindingsAsText(OneOfEach(), false).toStdString(),
            "/ü:3: error: Größe. [no-host]\n"
            "/f: note: c [fallback-unused]\n"
            "this machine: warning: b [month-names]\n"
            "1 error, 1 warning, 1 note\n");
}

TEST(FindingsAsTextTest, TerminalGetsColoursAndTheLineOfTheFile) {
  EXPECT_EQ(FindingsAsText(OneOfEach(), true).toStdString(),
            "\x1b[1m/ü:3: \x1b[1;31merror: \x1b[0mGröße. [no-host]\n"
            "    äx\n"
            "     \x1b[1;31m^\x1b[0m\n"
            "\x1b[1m/f: \x1b[1;36mnote: \x1b[0mc [fallback-unused]\n"
            "\x1b[1mthis machine: \x1b[1;35mwarning: \x1b[0mb [month-names]\n"
            "1 error, 1 warning, 1 note\n");
}

TEST(FindingsAsTextTest, CountsOtherThanOneArePlural) {
  EXPECT_EQ(FindingsAsText({}, true).toStdString(), "0 errors, 0 warnings, 0 notes\n");
  Findings findings = OneOfEach();
  findings.Add("no-host", {}, {});
  EXPECT_THAT(FindingsAsText(findings, false).toStdString(),
              testing::EndsWith("\n2 errors, 1 warning, 1 note\n"));
}

struct CaretRow : Row {
  std::string source;
  int column;
  std::string shown;  // the two lines without their indentation
};

class Caret : public testing::TestWithParam<CaretRow> {};

TEST_P(Caret, StandsUnderThePlace) {
  Findings findings;
  findings.Add("no-host",
               {Q("f"), 1, GetParam().column, QByteArray::fromStdString(GetParam().source)}, {});
  EXPECT_THAT(FindingsAsText(findings, true).toStdString(),
              testing::HasSubstr("]\n    " + GetParam().shown + "\x1b[1;31m^\x1b[0m\n1 error"));
}

const CaretRow kCarets[] = {
    {"FirstColumn", "ab", 1, "ab\n    "},
    {"LaterColumn", "ab", 2, "ab\n     "},
    {"ColumnBehindTheEnd", "ab", 3, "ab\n      "},
    {"TabsStandBeforeItToo", "\ta\tb", 4, "\ta\tb\n    \t \t"},
    {"CharacterOfSeveralBytesIsOneColumn", "ä€x", 6, "ä€x\n      "},
    {"ControlCharacterIsShownAsAQuestionMark", "a\x1b[m\r", 5, "a?[m?\n        "},
    {"BlankAndDeleteStay", " \x1f\x7f", 1, " ?\x7f\n    "}};

INSTANTIATE_TEST_SUITE_P(Rows, Caret, testing::ValuesIn(kCarets), OutcomeOf());

TEST(AddFindingsTest, JsonHasAPlaceOnlyAsFarAsThereIsOne) {
  QJsonObject document{{Q("other"), 1}};
  AddFindings(OneOfEach(), document);
  EXPECT_EQ(QJsonDocument(document).toJson(QJsonDocument::Compact).toStdString(),
            R"({"counts":{"errors":1,"notes":1,"warnings":1},"findings":[)"
            R"({"cause":"no-host","column":2,"events":["a1","a2"],"file":"/ü","level":"error",)"
            R"("line":3,"sentence":"Größe."},)"
            R"({"cause":"fallback-unused","events":[],"file":"/f","level":"note","sentence":"c"},)"
            R"({"cause":"month-names","events":[],"level":"warning","sentence":"b"}],"other":1})");
}

}  // namespace
}  // namespace ov
