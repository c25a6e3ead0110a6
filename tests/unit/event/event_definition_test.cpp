#include "event/event_definition.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "support/output.h"

namespace ov {
namespace {

TEST(SyslogLevelTest, ShortNamesHaveTheirNumbers) {
  std::vector<std::int32_t> levels;
  for (const char *name : {"emerg", "alert", "crit", "err", "warn", "notice", "info", "debug"}) {
    levels.push_back(syslogLevelFromName(name));
  }
  EXPECT_EQ(levels, (std::vector<std::int32_t>{0, 1, 2, 3, 4, 5, 6, 7}));
}

TEST(SyslogLevelTest, KnownNamePrintsNothing) {
  EXPECT_EQ(OutputOf([] { syslogLevelFromName("debug"); }), (Output{"", ""}));
}

class UnknownSyslogLevelTest : public testing::TestWithParam<std::string> {};

TEST_P(UnknownSyslogLevelTest, IsMinusOne) {
  std::int32_t level = 0;
  OutputOf([&] { level = syslogLevelFromName(GetParam().c_str()); });
  EXPECT_EQ(level, -1);
}

TEST_P(UnknownSyslogLevelTest, IsReportedOnStandardError) {
  EXPECT_EQ(OutputOf([] { syslogLevelFromName(GetParam().c_str()); }),
            (Output{"", "Unknown syslog level: " + GetParam() + "\n"}));
}

INSTANTIATE_TEST_SUITE_P(Names, UnknownSyslogLevelTest,
                         testing::Values("warning", "error", "emergency", "critical",
                                         "informational", "panic", "WARN", "Warn", "eRR", "", " ",
                                         " warn", "warn ", "war", "infox", "4", "%s"));

TEST(EventDefinitionTest, KeepsItsFourTexts) {
  const EventDefinition definition(QStringLiteral("perf01"), QStringLiteral("CPU"),
                                   QStringLiteral("CPU usage is high"), QStringLiteral("warn"));
  EXPECT_EQ((std::vector<QString>{definition.id, definition.label, definition.description,
                                  definition.severityName}),
            (std::vector<QString>{QStringLiteral("perf01"), QStringLiteral("CPU"),
                                  QStringLiteral("CPU usage is high"), QStringLiteral("warn")}));
}

TEST(EventDefinitionTest, DerivesTheSeverityFromItsName) {
  const EventDefinition definition({}, {}, {}, QStringLiteral("notice"));
  EXPECT_EQ(definition.severity, 5);
}

TEST(EventDefinitionTest, HasSeverityMinusOneForAnUnknownName) {
  EventDefinition definition;
  OutputOf([&] { definition = EventDefinition({}, {}, {}, QStringLiteral("loud")); });
  EXPECT_EQ(definition.severity, -1);
}

TEST(EventDefinitionTest, ReportsAnUnknownNameAsUtf8) {
  const QString name = QString::fromUtf8("größer");
  EXPECT_EQ(OutputOf([&] { EventDefinition({}, {}, {}, name); }),
            (Output{"", "Unknown syslog level: größer\n"}));
}

TEST(EventDefinitionTest, DefaultHasEmptyTexts) {
  const EventDefinition definition;
  EXPECT_EQ((definition.id + definition.label + definition.description + definition.severityName)
                .toStdString(),
            "");
}

TEST(EventDefinitionTest, DefaultHasSeverityZero) { EXPECT_EQ(EventDefinition().severity, 0); }

TEST(EventDefinitionTest, DefaultReportsNothing) {
  EXPECT_EQ(OutputOf([] { EventDefinition(); }), (Output{"", ""}));
}

}  // namespace
}  // namespace ov
