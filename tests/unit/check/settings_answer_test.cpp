#include "check/settings_answer.h"

#include <QCryptographicHash>
#include <QJsonDocument>

#include "check/check_settings.h"
#include "check/checked_files.h"
#include "support/support.h"

namespace ov {
namespace {

constexpr char kAll[] =
    "facility=1\nformatString=\"[ID]\\\"\xFC\"\nallowed=sys05  perf01\nprotocol=syslog-tcp\n"
    "host=h\nport=2\nusbDevMon=3\nvmwSigninMon=1\nagentConnMon=1\nperfMon=1\n"
    "cpuThreshold=4\nmemThreshold=5\ndiskThreshold=6\n";

TEST(SettingsAnswerTest, TextHasEachKeyWithItsPlaceInAFixedOrder) {
  EXPECT_EQ(AsText(AnswerFor(SettingsWith(kAll))).toStdString(),
            "/tmp/ov-event-logger.ini:1   facility       1\n"
            "/tmp/ov-event-logger.ini:2   formatString   \"[ID]\\\"ü\"\n"
            "/tmp/ov-event-logger.ini:3   allowed        \"perf01 sys05\"\n"
            "/tmp/ov-event-logger.ini:4   protocol       \"syslog-tcp\"\n"
            "/tmp/ov-event-logger.ini:5   host           \"h\"\n"
            "/tmp/ov-event-logger.ini:6   port           2\n"
            "/tmp/ov-event-logger.ini:7   usbDevMon      1\n"
            "/tmp/ov-event-logger.ini:8   vmwSigninMon   1\n"
            "/tmp/ov-event-logger.ini:9   agentConnMon   1\n"
            "/tmp/ov-event-logger.ini:10  perfMon        1\n"
            "/tmp/ov-event-logger.ini:11  cpuThreshold   4\n"
            "/tmp/ov-event-logger.ini:12  memThreshold   5\n"
            "/tmp/ov-event-logger.ini:13  diskThreshold  6\n"
            "SHA-256  " +
                QCryptographicHash::hash(
                    "facility=1\nformatString=[ID]\"ü\nallowed=perf01 sys05\nprotocol=syslog-tcp\n"
                    "host=h\nport=2\nusbDevMon=1\nvmwSigninMon=1\nagentConnMon=1\nperfMon=1\n"
                    "cpuThreshold=4\nmemThreshold=5\ndiskThreshold=6\n",
                    QCryptographicHash::Sha256)
                    .toHex()
                    .toStdString() +
                "\n");
}

// The digest of these lines as sha256sum has it.
TEST(SettingsAnswerTest, EmptyFileLeavesTheDefaults) {
  EXPECT_EQ(AsText(AnswerFor(SettingsWith(""))).toStdString(),
            "default  facility       3\n"
            "default  formatString   \"<[PRI]> [DATE] [NAME]([IP]): [ID] [DESC] - [VAL] ([SEV])\"\n"
            "default  allowed        \"\"\n"
            "default  protocol       \"syslog-udp\"\n"
            "default  host           \"\"\n"
            "default  port           514\n"
            "default  usbDevMon      0\n"
            "default  vmwSigninMon   0\n"
            "default  agentConnMon   0\n"
            "default  perfMon        0\n"
            "default  cpuThreshold   80\n"
            "default  memThreshold   80\n"
            "default  diskThreshold  80\n"
            "SHA-256  9ef3f50f68f4f41992e5420b46e9e916f5ceef38fee5b88a9cb59c54fb26611f\n");
}

TEST(SettingsAnswerTest, EachValueChangesTheDigest) {
  QSet<QByteArray> digests;
  const QStringList lines = Q(kAll).split(QLatin1Char('\n'), Qt::SkipEmptyParts);
  ASSERT_EQ(lines.size(), SettingsKeys().size());
  digests.insert(AnswerFor(SettingsWith("")).digest);
  for (const QString &line : lines) {
    digests.insert(AnswerFor(SettingsWith(line.toStdString())).digest);
  }
  EXPECT_EQ(digests.size(), lines.size() + 1);
}

class Origin : public testing::TestWithParam<TextRow> {};

// The first words of the row of a key that has them.
TEST_P(Origin, IsTold) {
  EXPECT_THAT(AsText(AnswerFor(SettingsWith(GetParam().input))).toStdString(),
              testing::HasSubstr(GetParam().expected));
}

const TextRow kOrigins[] = {
    {"LastLineOfAKeyCounts", "port=1\nport=2", ":2  port           2\n"},
    {"ValueThatIsNoNumberLeavesTheDefault", "port=x", "default  port           514\n"},
    {"EmptyTextIsFromTheFile", "allowed=", ":1  allowed        \"\"\n"},
    {"UnknownProtocolIsUdpFromTheFile", "protocol=x", ":1  protocol       \"syslog-udp\"\n"},
    {"NegativeSwitchIsOff", "perfMon=-1", ":1  perfMon        0\n"},
    {"OnlyTheSwitchThatIsOnIsOn", "vmwSigninMon=1",
     "default                     usbDevMon      0\n"},
    {"SectionLeavesTheDefault", "[s]\nport=1", "default  port           514\n"}};

INSTANTIATE_TEST_SUITE_P(Rows, Origin, testing::ValuesIn(kOrigins), OutcomeOf());

TEST(SettingsAnswerTest, JsonHasAPlaceForWhatIsFromTheFile) {
  const SettingsAnswer answer = AnswerFor(SettingsWith("\nfacility=1"));
  const QByteArray json = QJsonDocument(AsJson(answer)).toJson(QJsonDocument::Compact);
  EXPECT_THAT(json.toStdString(),
              testing::StartsWith(
                  R"({"settings":[{"file":"/tmp/ov-event-logger.ini","key":"facility","line":2,)"
                  R"("value":"1"},{"key":"formatString","value":"<[PRI]>)"));
  EXPECT_THAT(json.toStdString(),
              testing::EndsWith(R"({"key":"diskThreshold","value":"80"}],"sha256":")" +
                                answer.digest.toStdString() + "\"}"));
}

}  // namespace
}  // namespace ov
