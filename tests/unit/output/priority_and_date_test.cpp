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

#include "output/message_formatter.h"
#include "support/time_zone.h"

namespace ov {
namespace {

constexpr std::int64_t kSmallest64 = std::numeric_limits<std::int64_t>::min();
constexpr std::int64_t kLargest64 = std::numeric_limits<std::int64_t>::max();

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

}  // namespace
}  // namespace ov
