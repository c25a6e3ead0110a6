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

struct StatusRow : Row {
  std::string contents;
  std::string status;
};

class AgentStatus : public testing::TestWithParam<StatusRow> {};

TEST_P(AgentStatus, IsRead) {
  WriteFile(kAgentStatusPath, GetParam().contents);
  const std::size_t open = CountOpenDescriptors();
  EXPECT_TRUE(Read() == GetParam().status);
  EXPECT_EQ(CountOpenDescriptors(), open);
}

const std::string kLongLine(1'000'000, 'x');

const StatusRow kAgentStatusRows[] = {
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

INSTANTIATE_TEST_SUITE_P(Rows, AgentStatus, testing::ValuesIn(kAgentStatusRows),
                         OutcomeOf<StatusRow>);

TEST(AgentStatusTest, MissingFileHasNoStatus) { EXPECT_EQ(Read(), ""); }

TEST(AgentStatusTest, LinkIsFollowed) {
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

Events Check(AgentConnMon &monitor) {
  OutputOf([&] { monitor.Check(); });
  return TakeEvents();
}

// What a check raises when the agent says so.
Events CheckWith(AgentConnMon &monitor, const std::string &status) {
  WriteFile(kAgentStatusPath, "agent\n1\n" + status + "\n");
  return Check(monitor);
}

struct CheckRow : Row {
  std::vector<std::string> statuses;
  Events events;
  bool connectedAllowed = true;
  bool failureAllowed = true;
};

class AgentChecks : public testing::TestWithParam<CheckRow> {};

TEST_P(AgentChecks, RaiseEvents) {
  AgentConnMon monitor(GetParam().connectedAllowed, GetParam().failureAllowed);
  Events events;
  for (const std::string &status : GetParam().statuses) {
    for (const auto &event : CheckWith(monitor, status)) {
      events.push_back(event);
    }
  }
  EXPECT_EQ(events, GetParam().events);
}

const std::string kLong(127, 'x');

const CheckRow kAgentChecksRows[] = {
    {"ConnectionIsReportedOnceWithoutValues", {"  CONNECTED  ", "CONNECTED"}, {{"net02", ""}}},
    {"ConnectingIsAChangeThatIsNotReported",
     {"CONNECTED", "CONNECTING...", "CONNECTED"},
     {{"net02", ""}, {"net02", ""}}},
    {"CertificateWarningIsReportedAsConnectedWithItsText",
     {"CERTIFICATE WARNING", "CERTIFICATE WARNING"},
     {{"net02", "CERTIFICATE WARNING"}}},
    {"OtherStatusIsReportedAsAFailureWithItsText",
     {"CONNECTED", "DISCONNECTED", "DISCONNECTED"},
     {{"net02", ""}, {"net03", "DISCONNECTED"}}},
    {"OtherSpellingsAreFailures",
     {"Connected", "CONNECTING", "CERTIFICATE  WARNING", "connecting..."},
     {{"net03", "Connected"},
      {"net03", "CONNECTING"},
      {"net03", "CERTIFICATE  WARNING"},
      {"net03", "connecting..."}}},
    {"LostStatusIsAFailureWithoutText", {"CONNECTED", "", ""}, {{"net02", ""}, {"net03", ""}}},
    {"NoStatusAtTheStartIsNotReported", {"", ""}, {}},
    {"ConnectionThatIsNotAllowedIsNotReported",
     {"CONNECTED", "CERTIFICATE WARNING", "DOWN"},
     {{"net03", "DOWN"}},
     false,
     true},
    {"FailureThatIsNotAllowedIsRemembered",
     {"CONNECTED", "DOWN", "CONNECTED"},
     {{"net02", ""}, {"net02", ""}},
     true,
     false},
    {"StatusesThatDifferBeyondTheCutTo127BytesAreAChange",
     {kLong + "1", kLong + "2"},
     {{"net03", kLong}, {"net03", kLong}}}};

INSTANTIATE_TEST_SUITE_P(Rows, AgentChecks, testing::ValuesIn(kAgentChecksRows),
                         OutcomeOf<CheckRow>);

TEST(AgentConnMonTest, RemovedFileIsAFailureWithoutText) {
  AgentConnMon monitor(true, true);
  EXPECT_EQ(CheckWith(monitor, "CONNECTED"), (Events{{"net02", ""}}));
  std::remove(kAgentStatusPath);
  EXPECT_EQ(Check(monitor), (Events{{"net03", ""}}));
}

TEST(AgentConnMonTest, InitAndANewMonitorForgetTheStatus) {
  AgentConnMon monitor(true, true);
  EXPECT_EQ(CheckWith(monitor, "CONNECTED"), (Events{{"net02", ""}}));
  monitor.Init();
  EXPECT_EQ(Check(monitor), (Events{{"net02", ""}}));
  AgentConnMon other(true, true);
  EXPECT_EQ(Check(other), (Events{{"net02", ""}}));
}

TEST(AgentConnMonTest, CheckPrintsTheStatusForDebuggingEachTime) {
  AgentConnMon monitor(true, true);
  const auto check = [&] { monitor.Check(); };
  EXPECT_EQ(OutputOf(check), (Output{"", "AgentConnMon::ReadAgentStatus:  \"\"\n"}));
  WriteFile(kAgentStatusPath, "\n\n CONNECTED\n");
  const Output line{"", "AgentConnMon::ReadAgentStatus:  \"CONNECTED\"\n"};
  EXPECT_EQ(OutputOf(check), line);
  EXPECT_EQ(OutputOf(check), line);
}

}  // namespace
}  // namespace ov
