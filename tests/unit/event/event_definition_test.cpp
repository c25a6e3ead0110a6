#include "event/event_definition.h"

#include "support/support.h"

namespace ov {
namespace {

TEST(EventDefinitionTest, SeverityIsThePlaceOfItsNameAmongEight) {
  std::vector<std::int32_t> severities;
  const Output output = OutputOf([&] {
    for (const char *name : {"emerg", "alert", "crit", "err", "warn", "notice", "info", "debug"}) {
      severities.push_back(EventDefinition({}, {}, {}, QString::fromUtf8(name)).severity);
    }
  });
  EXPECT_EQ(severities, (std::vector<std::int32_t>{0, 1, 2, 3, 4, 5, 6, 7}));
  EXPECT_EQ(output, (Output{"", ""}));
}

TEST(EventDefinitionTest, OtherSeverityNamesAreMinusOneAndReportedInUtf8) {
  for (const std::string name : {"warning", "error", "WARN", "Warn", "", " ", " warn", "warn ",
                                 "war", "infox", "4", "%s", "größer"}) {
    EventDefinition definition;
    EXPECT_EQ(
        OutputOf([&] { definition = EventDefinition({}, {}, {}, QString::fromStdString(name)); }),
        (Output{"", "Unknown syslog level: " + name + "\n"}));
    EXPECT_EQ(definition.severity, -1);
    EXPECT_EQ(definition.severityName.toStdString(), name);
  }
}

TEST(EventDefinitionTest, EventWithoutADefinitionHasEmptyTextsAndSeverityZero) {
  const EventDefinition none;
  EXPECT_EQ((none.id + none.label + none.description + none.severityName).toStdString(), "");
  EXPECT_EQ(none.severity, 0);
}

}  // namespace
}  // namespace ov
