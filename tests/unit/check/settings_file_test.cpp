#include "check/settings_file.h"

#include <sys/stat.h>

#include <QSettings>

#include "check/checked_files.h"
#include "support/support.h"

namespace ov {
namespace {

// --- Lines -------------------------------------------------------------------------------------

// "<start>'<text>'" and, if it has them, the section, the key with its value and the comment.
std::string Cut(const std::string &contents) {
  std::string cut;
  for (const SettingsLine &line : CutSettings(QByteArray::fromStdString(contents))) {
    cut += cut.empty() ? "" : " ";
    cut += std::to_string(line.start) + "'" + line.text.toStdString() + "'";
    cut += line.isSection ? " is" : "";
    cut += line.section.isNull() ? "" : " [" + line.section.toStdString() + "]";
    if (line.valueStart > 0) {
      cut += " (" + line.key.toStdString() + ")@" + std::to_string(line.valueStart) + "(" +
             line.Value().toStdString() + ")";
    }
    cut += line.cut.isEmpty() ? "" : " ~'" + line.cut.toStdString() + "'";
  }
  return cut;
}

class Lines : public testing::TestWithParam<TextRow> {};

TEST_P(Lines, AreCut) { EXPECT_EQ(Cut(GetParam().input), GetParam().expected); }

const TextRow kLines[] = {
    {"EmptyFileHasNone", "", ""},
    {"WhiteSpaceHasNone", " \t\r\n \n", ""},
    {"LineFeedEndsALine", "a=1\nb=2\n", "0'a=1' (a)@2(1) 4'b=2' (b)@6(2)"},
    {"CarriageReturnEndsALine", "a=1\rb=2", "0'a=1' (a)@2(1) 4'b=2' (b)@6(2)"},
    {"BothEndOneLine", "a=1\r\nb=2\r\n", "0'a=1' (a)@2(1) 5'b=2' (b)@7(2)"},
    {"BlankLinesAndIndentationAreNoPart", "\n \t a=1\n\n b=2", "4'a=1' (a)@6(1) 10'b=2' (b)@12(2)"},
    {"BlanksAroundTheEqualsSignAreNoPart", "a\t = \t1 ", "0'a\t = \t1 ' (a)@6(1 )"},
    {"VerticalTabIsNoWhiteSpace", "\va\v=\v1", "0'\va\v=\v1' (\va\v)@4(\v1)"},
    {"LineWithoutAnEqualsSignHasNoKey", "abc", "0'abc'"},
    {"KeyMayBeEmpty", "=1", "0'=1' ()@1(1)"},
    {"ValueMayBeEmpty", "a=\nb= ", "0'a=' (a)@2() 3'b= ' (b)@6()"},
    {"FirstEqualsSignCounts", "a=b=c", "0'a=b=c' (a)@2(b=c)"},
    {"EqualsSignBehindABackslashDoesNot", "a\\=b=c", "0'a\\=b=c' (a/=b)@5(c)"},
    {"EqualsSignInDoubleQuotesDoesNot", "\"a=b\"=c", "0'\"a=b\"=c' (\"a=b\")@6(c)"},
    {"CommentLineIsSkipped", "; a=1\nb=2", "6'b=2' (b)@8(2)"},
    {"CommentLinesInARowAreSkipped", " ;a\r\n\t;b\n;c\nd=1", "12'd=1' (d)@14(1)"},
    {"DoubleQuoteInACommentLineBeginsNothing", ";\"\na=1\n", "3'a=1' (a)@5(1)"},
    {"CommentAtTheEndHasNone", "a=1\n;b", "0'a=1' (a)@2(1)"},
    {"CommentBehindAValueIsCut", "a=1 ; x;y\nb=2", "0'a=1 ' (a)@2(1 ) ~'; x;y' 10'b=2' (b)@12(2)"},
    {"CommentBehindAValueEndsAtACarriageReturn", "a=1;x\rb=2",
     "0'a=1' (a)@2(1) ~';x' 6'b=2' (b)@8(2)"},
    {"LoneSemicolonIsAComment", "a=1;", "0'a=1' (a)@2(1) ~';'"},
    {"SemicolonInDoubleQuotesIsNone", "a=\"1;2\";3", "0'a=\"1;2\"' (a)@2(\"1;2\") ~';3'"},
    {"SemicolonBehindABackslashIsNone", "a=1\\;2", "0'a=1\\;2' (a)@2(1\\;2)"},
    {"LineGoesOnOverALineFeedInDoubleQuotes", "a=\"1\n2\"\nb=3",
     "0'a=\"1\n2\"' (a)@2(\"1\n2\") 8'b=3' (b)@10(3)"},
    {"LineWithAnOpenDoubleQuoteGoesOnToTheEnd", "a=\"1\nb=3\n",
     "0'a=\"1\nb=3\n' (a)@2(\"1\nb=3\n)"},
    {"DoubleQuoteBehindABackslashIsALetter", "a=\\\"\nb=1",
     "0'a=\\\"' (a)@2(\\\") 5'b=1' (b)@7(1)"},
    {"BackslashJoinsTheNextLine", "a=1\\\nb=2\nc=3",
     "0'a=1\\\nb=2' (a)@2(1\\\nb=2) 9'c=3' (c)@11(3)"},
    {"BackslashJoinsOverBothLineEnds", "a=1\\\r\nb\nc=3",
     "0'a=1\\\r\nb' (a)@2(1\\\r\nb) 8'c=3' (c)@10(3)"},
    {"BackslashJoinsOverBothLineEndsSwapped", "a=1\\\n\rb\nc=3",
     "0'a=1\\\n\rb' (a)@2(1\\\n\rb) 8'c=3' (c)@10(3)"},
    {"BackslashJoinsOverOneLineFeedAlone", "a=1\\\n\nb=2",
     "0'a=1\\\n' (a)@2(1\\\n) 6'b=2' (b)@8(2)"},
    {"TwoBackslashesJoinNothing", "a=1\\\\\nb=2", "0'a=1\\\\' (a)@2(1\\\\) 6'b=2' (b)@8(2)"},
    {"BackslashAtTheEndOfTheFileIsALetter", "a=1\\", "0'a=1\\' (a)@2(1\\)"}};

INSTANTIATE_TEST_SUITE_P(Rows, Lines, testing::ValuesIn(kLines), OutcomeOf());

const TextRow kSections[] = {
    {"SectionHoldsForTheLinesBehindIt", "a=1\n[s]\nb=2\n[t]\nc=3",
     "0'a=1' (a)@2(1) 4'[s]' is [s] 8'b=2' [s] (b)@10(2) 12'[t]' is [t] 16'c=3' [t] (c)@18(3)"},
    {"GeneralIsNoSection", "[s]\n[general]\na=1",
     "0'[s]' is [s] 4'[general]' is 14'a=1' (a)@16(1)"},
    {"GeneralInCapitalsIsNoSection", "[ GENERAL ]\na=1", "0'[ GENERAL ]' is 12'a=1' (a)@14(1)"},
    {"EscapedGeneralIsASection", "[%General]\na=1",
     "0'[%General]' is [General] 11'a=1' [General] (a)@13(1)"},
    {"EscapedGeneralKeepsItsCase", "[%gEnEral]", "0'[%gEnEral]' is [gEnEral]"},
    {"BlanksAroundItsNameAreNoPart", "[ s t ]", "0'[ s t ]' is [s t]"},
    {"TextBehindTheBracketIsNoPart", "[s]a=1\nb=2", "0'[s]a=1' is [s] 7'b=2' [s] (b)@9(2)"},
    {"ItsNameWithoutABracketGoesToTheEndOfTheLine", "[st\na=1",
     "0'[st' is [st] 4'a=1' [st] (a)@6(1)"},
    {"ItsNameMayBeEmpty", "[]\na=1", "0'[]' is [] 3'a=1' [] (a)@5(1)"},
    {"ItsNameHasEscapes", "[a%20\\b]", "0'[a%20\\b]' is [a /b]"}};

INSTANTIATE_TEST_SUITE_P(Sections, Lines, testing::ValuesIn(kSections), OutcomeOf());

const TextRow kMarks[] = {
    {"MarkBelongsToTheFirstKey", "\xEF\xBB\xBF\na=1", "0'\xEF\xBB\xBF' 4'a=1' (a)@6(1)"},
    {"MarkIsPassedOverBeforeASection", "\xEF\xBB\xBF \n[s]\na=1",
     "5'[s]' is [s] 9'a=1' [s] (a)@11(1)"},
    {"MarkAloneIsALine", "\xEF\xBB\xBF", "0'\xEF\xBB\xBF'"},
    {"MarkBeforeBlanksIsALine", "\xEF\xBB\xBF ", "0'\xEF\xBB\xBF '"}};

INSTANTIATE_TEST_SUITE_P(Marks, Lines, testing::ValuesIn(kMarks), OutcomeOf());

class Keys : public testing::TestWithParam<TextRow> {};

TEST_P(Keys, AreDecoded) {
  const QList<SettingsLine> lines = CutSettings(QByteArray::fromStdString(GetParam().input + "=1"));
  ASSERT_EQ(lines.size(), 1);
  EXPECT_EQ(lines[0].key.toStdString(), GetParam().expected);
}

const TextRow kKeys[] = {{"TwoDigitsGiveACharacter", "%41%c3%Fcx", "AÃüx"},
                         {"FourDigitsBehindAUGiveACharacter", "%U20aCx%U00410", "€xA0"},
                         {"SmallUIsNoSuch", "%u0041", "%u0041"},
                         {"OneDigitIsLiteral", "%4", "%4"},
                         {"OneDigitAndALetterAreLiteral", "%4g", "%4g"},
                         {"ThreeDigitsBehindAUAreLiteral", "%U041", "%U041"},
                         {"ThreeDigitsAndALetterBehindAUAreLiteral", "%U041g", "%U041g"},
                         {"PercentSignAloneIsLiteral", "%", "%"},
                         {"PercentSignAtTheEndIsLiteral", "ab%", "ab%"},
                         {"DigitsAloneAreLiteral", "4142", "4142"},
                         {"BackslashIsASlash", "a\\b\\\\c", "a/b//c"},
                         {"ByteIsACharacter", "\xFC", "ü"}};

INSTANTIATE_TEST_SUITE_P(Rows, Keys, testing::ValuesIn(kKeys), OutcomeOf());

TEST(SettingsLineTest, KeyOfNoSectionIsEmptyAndNotNull) {
  EXPECT_EQ(CutSettings("=1")[0].KeyWithSection().toStdString(), "");
  EXPECT_EQ(CutSettings("[s]\na=1")[1].KeyWithSection().toStdString(), "s/a");
  EXPECT_EQ(CutSettings("[]\na=1")[1].KeyWithSection().toStdString(), "/a");
}

struct CommaRow : Row {
  std::string value;
  int expected;
};

class Comma : public testing::TestWithParam<CommaRow> {};

TEST_P(Comma, IsFound) {
  const QList<SettingsLine> lines =
      CutSettings(QByteArray::fromStdString("k, = " + GetParam().value));
  EXPECT_EQ(lines[0].UnquotedComma(), GetParam().expected);
}

const CommaRow kCommas[] = {{"NoComma", "ab", -1},
                            {"FirstOfTwoCommas", "ab,c,d", 2},
                            {"CommaInFront", ",", 0},
                            {"CommaInDoubleQuotesDoesNotCount", "\"a,b\"", -1},
                            {"CommaBehindDoubleQuotesCounts", "\"a,b\",", 5},
                            {"CommaBehindABackslashDoesNotCount", "a\\,b", -1},
                            {"CommaBehindTwoBackslashesCounts", "a\\\\,b", 3},
                            {"DoubleQuoteBehindABackslashIsNone", "\\\",", 2},
                            {"DoubleQuoteBehindABackslashEndsNone", "\"\\\",\"", -1}};

INSTANTIATE_TEST_SUITE_P(Rows, Comma, testing::ValuesIn(kCommas), OutcomeOf());

// --- What Qt reads -----------------------------------------------------------------------------

std::string KeysOf(QStringList keys) {
  keys.removeDuplicates();
  keys.sort();
  return keys.join(QLatin1Char('|')).toStdString();
}

// Every file of up to four of these pieces.
TEST(CutSettingsTest, KeysAndListsAreThoseThatQtReads) {
  const std::vector<std::string> pieces = {"a",  "=",  ",",   ";",   "\"", "\\",
                                           "\n", "\r", "[b]", "%41", " "};
  const QtMessageHandler before = qInstallMessageHandler(
      [](QtMsgType /*type*/, const QMessageLogContext & /*context*/, const QString & /*text*/) {});
  std::vector<std::string> files = {""};
  std::size_t first = 0;
  for (int length = 1; length <= 4; ++length) {
    const std::size_t end = files.size();
    for (; first < end; ++first) {
      for (const std::string &piece : pieces) {
        files.push_back(files[first] + piece);
      }
    }
  }
  for (const std::string &contents : files) {
    WriteSettings(contents);
    const QSettings settings(QLatin1String(kSettingsPath), QSettings::IniFormat);
    QStringList keys;
    QStringList lists;
    QHash<QString, bool> isList;
    for (const SettingsLine &line : CutSettings(QByteArray::fromStdString(contents))) {
      if (line.valueStart > 0) {
        keys.append(line.KeyWithSection());
        isList.insert(line.KeyWithSection(), line.UnquotedComma() >= 0);
      }
    }
    ASSERT_EQ(KeysOf(keys), KeysOf(settings.allKeys())) << testing::PrintToString(contents);
    // Qt changes slashes in a key before it looks for the value, and refuses an empty one.
    for (auto entry = isList.cbegin(); entry != isList.cend(); ++entry) {
      const QString &key = entry.key();
      if (!key.isEmpty() && !key.contains(QLatin1String("/"))) {
        ASSERT_EQ(*entry, settings.value(key).type() == QVariant::StringList)
            << testing::PrintToString(contents);
      }
    }
  }
  qInstallMessageHandler(before);
}

// --- Places ------------------------------------------------------------------------------------

std::string Text(const Place &place) {
  return std::to_string(place.line) + ":" + std::to_string(place.column) + " " +
         place.source.toStdString();
}

TEST(SettingsFileTest, LastLineOfAKeyHolds) {
  const SettingsFile file = SettingsWith("port=1\n[s]\nport=2\n[General]\nport=3\nport\n");
  EXPECT_EQ(Text(file.PlaceOfKey(Q("port"))), "5:6 port=3");
  EXPECT_EQ(file.LineOf(Q("port")), &file.Lines()[4]);
  EXPECT_EQ(file.LineOf(Q("s/port")), &file.Lines()[2]);
  EXPECT_EQ(file.LineOf(Q("host")), nullptr);
  EXPECT_EQ(file.InForce().port(), 3);
  EXPECT_EQ(file.Entries().value(Q("s/port")).toStdString(), "2");
}

TEST(SettingsFileTest, MissingKeyHasThePlaceOfTheFile) {
  const SettingsFile file = SettingsWith("port=1");
  EXPECT_EQ(Text(file.PlaceOfKey(Q("host"))), "0:0 ");
  EXPECT_EQ(Text(file.PlaceInKey(Q("host"), "x")), "0:0 ");
  EXPECT_EQ(file.PlaceOfKey(Q("host")).file, file.Path());
  EXPECT_EQ(file.PlaceOfKey(Q("port")).file, file.Path());
}

struct LineEndRow : Row {
  std::string contents;
  std::vector<std::string> expected;  // the places of all offsets
};

class LineEnds : public testing::TestWithParam<LineEndRow> {};

TEST_P(LineEnds, ArePassed) {
  const SettingsFile file = SettingsWith(GetParam().contents);
  std::vector<std::string> places;
  for (int offset = 0; offset <= file.Contents().size(); ++offset) {
    places.push_back(Text(file.PlaceAt(offset)));
  }
  EXPECT_EQ(places, GetParam().expected);
}

const LineEndRow kLineEnds[] = {
    {"EmptyFileIsOneLine", "", {"1:1 "}},
    {"LineFeedBelongsToItsLine",
     "a\n\nbc",
     {"1:1 a", "1:2 a", "2:1 ", "3:1 bc", "3:2 bc", "3:3 bc"}},
    {"CarriageReturnBeforeALineFeedBelongsToTheLine",
     "a\r\nb",
     {"1:1 a\r", "1:2 a\r", "1:3 a\r", "2:1 b", "2:2 b"}},
    {"CarriageReturnAloneEndsALine", "a\rb\r", {"1:1 a", "1:2 a", "2:1 b", "2:2 b", "3:1 "}}};

INSTANTIATE_TEST_SUITE_P(Rows, LineEnds, testing::ValuesIn(kLineEnds), OutcomeOf());

class WordInKey : public testing::TestWithParam<TextRow> {};

// The word, then the line.
TEST_P(WordInKey, IsFound) {
  const std::vector<std::string> parts = Parts(GetParam().input);
  const SettingsFile file = SettingsWith("\n" + parts[1]);
  EXPECT_EQ(Text(file.PlaceInKey(Q("a"), QByteArray::fromStdString(parts[0]))),
            GetParam().expected + " " + parts[1]);
}

const TextRow kWords[] = {{"AtTheBeginning", "perf01|a=perf01 sys05", "2:3"},
                          {"AtTheEnd", "sys05|a=perf01 sys05", "2:10"},
                          {"BehindOneThatItEnds", "ys05|a=sys05 ys05", "2:9"},
                          {"BehindOneThatItBegins", "sys0|a=sys05 sys0", "2:9"},
                          {"BetweenOtherCharacters", "[ID]|a=x [ID]-", "2:5"},
                          {"BetweenDoubleQuotes", "b|a=\"b\"", "2:4"},
                          {"NotBesideALetter", "[ID]|a=x[ID] [ID]", "2:9"},
                          {"NotInTheKey", "a|a=x a", "2:5"},
                          {"AtTheValueIfItIsOnlyPartOfAWord", "b|a=ab bc", "2:3"},
                          {"AtTheValueIfItIsMissing", "x|a= b", "2:4"},
                          {"AtTheValueIfItIsEmpty", "|a= b ", "2:4"}};

INSTANTIATE_TEST_SUITE_P(Rows, WordInKey, testing::ValuesIn(kWords), OutcomeOf());

// --- Files -------------------------------------------------------------------------------------

TEST(SettingsFileTest, MissingFileLeavesTheDefaults) {
  const SettingsFile file(Q("/tmp/missing"));
  EXPECT_FALSE(file.Exists() || file.IsReadable());
  EXPECT_TRUE(file.Lines().isEmpty() && file.Entries().isEmpty() && file.Contents().isEmpty());
  EXPECT_EQ(file.InForce().port(), 514);
  EXPECT_EQ(Text(file.PlaceAt(0)), "1:1 ");
}

TEST(SettingsFileTest, FolderAndPipeAreNoSettings) {
  ASSERT_EQ(mkfifo("/tmp/pipe", 0600), 0);
  for (const char *path : {"/tmp", "/tmp/pipe"}) {
    const SettingsFile file{QLatin1String(path)};
    EXPECT_FALSE(file.Exists() || file.IsReadable()) << path;
  }
}

TEST(SettingsFileTest, FileHasItsBytesAndItsSettings) {
  const SettingsFile file = SettingsWith("port=7\nhost=\xFC\n");
  EXPECT_TRUE(file.Exists() && file.IsReadable());
  EXPECT_EQ(file.Contents().toStdString(), "port=7\nhost=\xFC\n");
  EXPECT_EQ(file.InForce().port(), 7);
  EXPECT_EQ(file.InForce().host().toStdString(), "ü");
  EXPECT_EQ(file.Path().toStdString(), kSettingsPath);
}

}  // namespace
}  // namespace ov
