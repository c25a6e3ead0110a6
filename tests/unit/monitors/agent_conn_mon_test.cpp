#include "monitors/agent_conn_mon.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>

#include "support/support.h"

namespace ov {
namespace {

// --- The status --------------------------------------------------------------------------------

std::string Read() {
  std::string status;
  EXPECT_EQ(OutputOf([&] { status = AgentConnMon::ReadAgentStatus().toStdString(); }),
            (Output{"", ""}));
  return status;
}

class AgentStatus : public testing::TestWithParam<TextRow> {};

TEST_P(AgentStatus, IsRead) {
  WriteFile(kAgentStatusPath, GetParam().input);
  const std::size_t open = CountOpenDescriptors();
  EXPECT_TRUE(Read() == GetParam().expected);
  EXPECT_EQ(CountOpenDescriptors(), open);
}

const std::string kLongLine(1'000'000, 'x');

const TextRow kAgentTextRows[] = {
    {"StatusIsTheThirdLine", "one\ntwo\nCONNECTED\nfour\n", "CONNECTED"},
    {"WhiteSpaceAroundTheStatusIsDropped", "\n\n \tCERTIFICATE  WARNING\v \r\n",
     "CERTIFICATE  WARNING"},
    {"StatusNeedsNoLineFeed", "one\ntwo\nCONNECTED", "CONNECTED"},
    {"CarriageReturnsBelongToTheLineEnds", "a\r\nb\r\nDOWN\r\n", "DOWN"},
    {"StatusIsReadAsUtf8", "\n\nGestört\n", "Gestört"},
    {"ByteOrderMarkIsDroppedFromTheFirstLineOnly", "\xEF\xBB\xBF\n\n\xEF\xBB\xBFUP\n",
     "\xEF\xBB\xBFUP"},
    {"EmptyFileHasNoStatus", "", ""},
    {"TwoLinesHaveNoStatus", "one\ntwo\n", ""},
    {"TwoLinesWithoutALineFeedHaveNoStatus", "one\ntwo", ""},
    {"BlankThirdLineHasNoStatus", "one\ntwo\n \t \nfour\n", ""},
    {"WordOnAnotherLineHasNoEffect", "CONNECTED\nCONNECTED\nx\nCONNECTED\n", "x"},
    {"LongLinesAreReadWhole", kLongLine + "\n" + kLongLine + "\n" + kLongLine + "y\n",
     kLongLine + "y"}};

INSTANTIATE_TEST_SUITE_P(Rows, AgentStatus, testing::ValuesIn(kAgentTextRows), OutcomeOf());

TEST(AgentStatusTest, LinkIsFollowedAndAMissingFileHasNoStatus) {
  EXPECT_EQ(Read(), "");
  ASSERT_EQ(symlink("/tmp/target", kAgentStatusPath), 0);
  EXPECT_EQ(Read(), "");
  WriteFile("/tmp/target", "\n\nCONNECTED\n");
  EXPECT_EQ(Read(), "CONNECTED");
}

TEST(AgentStatusTest, FoldersPipesAndDevicesHaveNoStatusAndHoldNobodyUp) {
  ASSERT_EQ(mkfifo("/tmp/pipe", 0666), 0);
  for (const char *target : {"/tmp", "/tmp/pipe", "/dev/zero", "/dev/random", "/dev/null"}) {
    ASSERT_EQ(symlink(target, kAgentStatusPath), 0);
    EXPECT_EQ(Read(), "") << target;
    ASSERT_EQ(unlink(kAgentStatusPath), 0);
  }
}

// --- The checks --------------------------------------------------------------------------------

// What a check raises.
std::string Check(AgentConnMon &monitor) {
  OutputOf([&] { monitor.Check(); });
  return TakeEvents();
}

void SetStatus(const std::string &status) {
  WriteFile(kAgentStatusPath, "agent\n1\n" + status + "\n");
}

struct CheckRow : Row {
  std::string statuses;  // of one check each
  std::string events;
  bool connectedAllowed = true;
  bool failureAllowed = true;
};

class AgentChecks : public testing::TestWithParam<CheckRow> {};

TEST_P(AgentChecks, RaiseEvents) {
  AgentConnMon monitor(GetParam().connectedAllowed, GetParam().failureAllowed);
  std::string events;
  for (const std::string &status : Parts(GetParam().statuses)) {
    SetStatus(status);
    events += Check(monitor);
  }
  EXPECT_EQ(events, GetParam().events);
}

const std::string kLong(127, 'x');

const CheckRow kChecks[] = {
    {"ConnectionIsReportedOnceWithoutValues", "  CONNECTED  |CONNECTED", "net02 |"},
    {"ConnectingIsAChangeThatIsNotReported", "CONNECTED|CONNECTING...|CONNECTED", "net02 |net02 |"},
    {"CertificateWarningIsReportedAsConnectedWithItsText",
     "CERTIFICATE WARNING|CERTIFICATE WARNING", "net02 CERTIFICATE WARNING|"},
    {"OtherStatusIsReportedAsAFailureWithItsText", "CONNECTED|DISCONNECTED|DISCONNECTED",
     "net02 |net03 DISCONNECTED|"},
    {"OtherSpellingsAreFailures", "Connected|CONNECTING|CERTIFICATE  WARNING",
     "net03 Connected|net03 CONNECTING|net03 CERTIFICATE  WARNING|"},
    {"LostStatusIsAFailureWithoutText", "CONNECTED||", "net02 |net03 |"},
    {"NoStatusAtTheStartIsNotReported", "|", ""},
    {"ConnectionThatIsNotAllowedIsNotReported", "CONNECTED|CERTIFICATE WARNING|DOWN", "net03 DOWN|",
     false, true},
    {"FailureThatIsNotAllowedIsRemembered", "CONNECTED|DOWN|CONNECTED", "net02 |net02 |", true,
     false},
    {"StatusesThatDifferBeyondTheCutTo127BytesAreAChange", kLong + "1|" + kLong + "2",
     "net03 " + kLong + "|net03 " + kLong + "|"}};

INSTANTIATE_TEST_SUITE_P(Rows, AgentChecks, testing::ValuesIn(kChecks), OutcomeOf());

TEST(AgentConnMonTest, RemovedFileIsAFailureAndInitAndANewMonitorForgetTheStatus) {
  AgentConnMon monitor(true, true);
  SetStatus("CONNECTED");
  EXPECT_EQ(Check(monitor), "net02 |");
  monitor.Init();
  EXPECT_EQ(Check(monitor), "net02 |");
  AgentConnMon other(true, true);
  EXPECT_EQ(Check(other), "net02 |");
  std::remove(kAgentStatusPath);
  EXPECT_EQ(Check(monitor), "net03 |");
}

TEST(AgentConnMonTest, CheckPrintsTheStatusForDebugging) {
  AgentConnMon monitor(true, true);
  SetStatus(" CONNECTED");
  EXPECT_EQ(OutputOf([&] { monitor.Check(); }),
            (Output{"", "AgentConnMon::ReadAgentStatus:  \"CONNECTED\"\n"}));
}

}  // namespace
}  // namespace ov
