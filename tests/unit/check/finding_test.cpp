#include "check/finding.h"

#include "check/checked_files.h"
#include "support/support.h"

namespace ov {
namespace {

// --- Words that were probably meant ------------------------------------------------------------

class Closest : public testing::TestWithParam<TextRow> {};

// The word, then the candidates.
TEST_P(Closest, IsFound) {
  QStringList candidates = Q(GetParam().input).split(QLatin1Char('|'));
  const QString word = candidates.takeFirst();
  EXPECT_EQ(ClosestTo(word, candidates).toStdString(), GetParam().expected);
}

const TextRow kClosest[] = {{"SameWord", "port|host|port|prot", "port"},
                            {"CaseOfTheWordDoesNotCount", "PORT|port", "port"},
                            {"CaseOfTheCandidateDoesNotCount", "port|PORT", "PORT"},
                            {"BeginningOfThreeLettersIsEnough", "for|formatString", "formatString"},
                            {"BeginningOfTwoLettersIsNot", "fo|formatString", ""},
                            {"CandidateOfThreeLettersMayBeTheBeginning", "memory12|mem", "mem"},
                            {"CandidateOfTwoLettersMayNot", "memory12|me", ""},
                            {"BeginningBeatsAnOtherLetter", "abcd|abcx|abcdefgh", "abcdefgh"},
                            {"LetterMayBeMissing", "pot|port", "port"},
                            {"LetterMayBeTooMany", "poort|port", "port"},
                            {"LetterMayBeAnother", "pxrt|port", "port"},
                            {"FirstTwoLettersMayBeSwapped", "oprt|port", "port"},
                            {"LastTwoLettersMayBeSwapped", "potr|port", "port"},
                            {"TwoLettersOfThreeMayBeSwapped", "acb|abc", "abc"},
                            {"LetterThatMovedBackIsNoSwap", "pabq|pbcq", ""},
                            {"LetterThatMovedForthIsNoSwap", "pbcq|pabq", ""},
                            {"OneLetterOfThreeMayDiffer", "abc|abd", "abd"},
                            {"OneLetterOfTwoMayNot", "ab|ac", ""},
                            {"TwoLettersOfFiveMayDiffer", "abxye|abcde", "abcde"},
                            {"TwoLettersOfFourMayNot", "abxy|abcd", ""},
                            {"TwoLettersMayBeMissing", "abcef|axbcyef", "axbcyef"},
                            {"TwoLettersMayBeTooMany", "axbcyef|abcef", "abcef"},
                            {"ThreeLettersMayNotDiffer", "xyzdefghij|abcdefghij", ""},
                            {"LeastDistanceWinsIfItComesLast", "abcdef|xycdef|xbcdef", "xbcdef"},
                            {"LeastDistanceWinsIfItComesFirst", "abcdef|xbcdef|xycdef", "xbcdef"},
                            {"FirstOfEqualDistancesWins", "abcdef|xbcdef|ybcdef", "xbcdef"},
                            {"EmptyWordMeansNothing", "|a|abc", ""},
                            {"EmptyCandidateIsNotMeant", "abcdef|", ""}};

INSTANTIATE_TEST_SUITE_P(Rows, Closest, testing::ValuesIn(kClosest), OutcomeOf());

// --- Texts -------------------------------------------------------------------------------------

TEST(PrintableTest, EscapesOnlyControlCharacters) {
  EXPECT_EQ(
      Printable(Q(std::string("a\n\t\r\x1b\x7f\0 \"\\ü\u0085\u009f\u00a0", 18))).toStdString(),
      "a\\n\\t\\x0d\\x1b\\x7f\\x00 \"\\ü\\x85\\x9f\u00a0");
}

TEST(QuotedTest, EscapesQuotesAndBackslashesToo) {
  EXPECT_EQ(Quoted(Q("a \"b\" \\ \\n\n")).toStdString(), R"("a \"b\" \\ \\n\n")");
  EXPECT_EQ(Quoted({}).toStdString(), R"("")");
}

// --- Causes ------------------------------------------------------------------------------------

TEST(FindCauseTest, FindsEachCauseByItsNameAlone) {
  for (const Cause &cause : kCauses) {
    EXPECT_EQ(FindCause(QLatin1String(cause.name)), &cause);
  }
  EXPECT_EQ(FindCause(Q("no-hosts")), nullptr);
  EXPECT_EQ(FindCause(Q("No-Host")), nullptr);
  EXPECT_EQ(FindCause({}), nullptr);
}

TEST(FindingsDeathTest, UnknownCauseEndsTheProcess) {
  EXPECT_EXIT(Findings().Add("no-such-cause", {}, {}), testing::KilledBySignal(SIGABRT), "");
}

// --- Collections -------------------------------------------------------------------------------

Place At(const char *file, int line, int column = 0) {
  return {QLatin1String(file), line, column, {}};
}

std::string SentencesOf(const Findings &findings) {
  std::string sentences;
  for (const Finding &finding : findings.Sorted()) {
    sentences += finding.sentence.toStdString() + " ";
  }
  return sentences;
}

TEST(FindingsTest, AreSortedByFileThenLineThenColumnAndThoseOfTheMachineComeLast) {
  Findings findings;
  findings.Add("time-zone", {}, Q("machine"));
  findings.Add("bad-id", At("z", 0), Q("z-whole"));
  findings.Add("bad-id", At("a", 2, 1), Q("a2:1"));
  findings.Add("bad-id", At("z", 10, 1), Q("z10:1"));
  findings.Add("bad-id", At("z", 2, 10), Q("z2:10"));
  findings.Add("bad-id", At("a", 1, 7), Q("a1:7"));
  findings.Add("no-host", At("z", 2, 9), Q("z2:9"));
  findings.Add("bad-id", At("z", 2, 9), Q("z2:9-again"));
  findings.Add("month-names", {}, Q("machine-again"));
  EXPECT_EQ(SentencesOf(findings),
            "z2:9 z2:9-again z2:10 z10:1 z-whole a1:7 a2:1 machine machine-again ");
}

TEST(FindingsTest, AreCountedByLevel) {
  Findings findings;
  EXPECT_FALSE(findings.HasComplaint());
  findings.Add("time-zone", {}, {});
  findings.AddUnseen("no-host", {});
  EXPECT_EQ(findings.Count(Level::kNote), 2);
  EXPECT_FALSE(findings.HasComplaint());
  Findings warned = findings;
  warned.Add("month-names", {}, {});
  EXPECT_EQ(warned.Count(Level::kWarning), 1);
  EXPECT_EQ(warned.Count(Level::kError), 0);
  EXPECT_TRUE(warned.HasComplaint());
  findings.Add("no-host", {}, {});
  EXPECT_EQ(findings.Count(Level::kError), 1);
  EXPECT_EQ(findings.Count(Level::kNote), 2);
  EXPECT_TRUE(findings.HasComplaint());
}

TEST(FindingsTest, HaveTheCausesThatWereAdded) {
  Findings findings;
  EXPECT_FALSE(findings.Has("no-host"));
  findings.Add("time-zone", {}, {});
  findings.AddUnseen("no-host", {});
  EXPECT_TRUE(findings.Has("no-host"));
  EXPECT_TRUE(findings.Has("time-zone"));
  EXPECT_FALSE(findings.Has("month-names"));
}

TEST(FindingsTest, TouchAnEventThatTheyNameAndEveryEventIfTheyNameNone) {
  Findings findings;
  findings.Add("no-host", {}, Q("all"));
  findings.Add("no-script", {}, Q("two"), {Q("perf01"), Q("perf02"), Q("perf01")});
  findings.Add("no-script", {}, Q("other"), {Q("perf03")});
  EXPECT_EQ(SentencesOf(findings.About(Q("perf02"))), "all two ");
  EXPECT_EQ(SentencesOf(findings.About(Q("perf0"))), "all ");
  EXPECT_EQ(Sentences(findings.About(Q("perf01"))),
            "no-host: all <>|no-script: two <perf01 perf02>");
}

}  // namespace
}  // namespace ov
