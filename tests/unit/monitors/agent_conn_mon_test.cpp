#include "monitors/agent_conn_mon.h"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <string>
#include <string_view>

#include "support/descriptors.h"
#include "support/events.h"
#include "support/files.h"
#include "support/output.h"
#include "support/polling.h"

namespace ov {
namespace {

class AgentConnMonTest : public testing::Test {
 protected:
  AgentConnMonTest() { TakeEvents(); }

  static std::string Read() { return AgentConnMon::ReadAgentStatus().toStdString(); }

  static std::string StatusIn(std::string_view contents) {
    WriteFile(kAgentStatusPath, contents);
    return Read();
  }

  static Events Check(AgentConnMon &monitor) {
    OutputOf([&] { monitor.Check(); });
    return TakeEvents();
  }

  // What a check raises when the agent says so.
  static Events CheckWith(AgentConnMon &monitor, const std::string &status) {
    WriteFile(kAgentStatusPath, "agent\n1\n" + status + "\n");
    return Check(monitor);
  }

  static Events CheckOfANewOne(bool connectedAllowed, bool failureAllowed,
                               const std::string &status) {
    AgentConnMon monitor(connectedAllowed, failureAllowed);
    return CheckWith(monitor, status);
  }

  const Events kNone;
  const Events kConnected{{"net02", ""}};
  AgentConnMon monitor_{true, true};
};

TEST_F(AgentConnMonTest, HasItsNameAndPeriod) {
  EXPECT_EQ(monitor_.Name(), QStringLiteral("Secure Connection Monitor"));
  EXPECT_EQ(monitor_.Period(), 5);
}

TEST_F(AgentConnMonTest, StatusIsTheThirdLine) {
  EXPECT_EQ(StatusIn("one\ntwo\nCONNECTED\nfour\n"), "CONNECTED");
}

TEST_F(AgentConnMonTest, WhiteSpaceAroundTheStatusIsDropped) {
  EXPECT_EQ(StatusIn("\n\n \tCERTIFICATE  WARNING\v \r\n"), "CERTIFICATE  WARNING");
}

TEST_F(AgentConnMonTest, StatusNeedsNoLineFeed) {
  EXPECT_EQ(StatusIn("one\ntwo\nCONNECTED"), "CONNECTED");
}

TEST_F(AgentConnMonTest, LinesMayEndInCarriageReturnAndLineFeed) {
  EXPECT_EQ(StatusIn("one\r\ntwo\r\nCONNECTED\r\n"), "CONNECTED");
  EXPECT_EQ(StatusIn("\r\n\r\n\r\n"), "");
}

TEST_F(AgentConnMonTest, StatusIsReadAsUtf8) { EXPECT_EQ(StatusIn("\n\nGestört\n"), "Gestört"); }

TEST_F(AgentConnMonTest, FileOfLessThanThreeLinesHasNoStatus) {
  for (const char *contents : {"", "\n", "one", "one\n", "one\ntwo", "one\ntwo\n", "\n\n"}) {
    EXPECT_EQ(StatusIn(contents), "") << contents;
  }
}

TEST_F(AgentConnMonTest, BlankThirdLineHasNoStatus) {
  EXPECT_EQ(StatusIn("one\ntwo\n\nfour\n"), "");
  EXPECT_EQ(StatusIn("one\ntwo\n \t \nfour\n"), "");
}

TEST_F(AgentConnMonTest, WordOnAnotherLineHasNoEffect) {
  EXPECT_EQ(StatusIn("CONNECTED\nCONNECTED\nx\nCONNECTED\n"), "x");
}

TEST_F(AgentConnMonTest, LongLinesAreReadWhole) {
  const std::string line(1'000'000, 'x');
  EXPECT_TRUE(StatusIn(line + "\n" + line + "\n" + line + "y\n") == line + "y");
}

TEST_F(AgentConnMonTest, MissingFileHasNoStatus) { EXPECT_EQ(Read(), ""); }

TEST_F(AgentConnMonTest, LinkToAFileIsFollowed) {
  WriteFile("/tmp/target", "\n\nCONNECTED\n");
  ASSERT_EQ(symlink("/tmp/target", kAgentStatusPath), 0);
  EXPECT_EQ(Read(), "CONNECTED");
}

TEST_F(AgentConnMonTest, LinkToNothingHasNoStatus) {
  ASSERT_EQ(symlink("/tmp/missing", kAgentStatusPath), 0);
  EXPECT_EQ(Read(), "");
}

TEST_F(AgentConnMonTest, FolderHasNoStatus) {
  ASSERT_EQ(mkdir(kAgentStatusPath, 0755), 0);
  EXPECT_EQ(OutputOf([] { EXPECT_EQ(Read(), ""); }), (Output{"", ""}));
}

TEST_F(AgentConnMonTest, PipeHasNoStatusAndDoesNotHoldTheMonitor) {
  ASSERT_EQ(mkfifo(kAgentStatusPath, 0666), 0);
  EXPECT_EQ(Read(), "");
}

TEST_F(AgentConnMonTest, DeviceHasNoStatusAndDoesNotHoldTheMonitor) {
  for (const char *device : {"/dev/zero", "/dev/random", "/dev/null"}) {
    ASSERT_EQ(symlink(device, kAgentStatusPath), 0);
    EXPECT_EQ(Read(), "") << device;
    ASSERT_EQ(unlink(kAgentStatusPath), 0);
  }
}

TEST_F(AgentConnMonTest, FileIsClosedAgain) {
  StatusIn("one\ntwo\nCONNECTED\n");
  const std::size_t before = CountOpenDescriptors();
  Read();
  EXPECT_EQ(CountOpenDescriptors(), before);
}

TEST_F(AgentConnMonTest, CheckPrintsTheStatusForDebuggingEachTime) {
  WriteFile(kAgentStatusPath, "\n\n CONNECTED\n");
  const Output line{"", "AgentConnMon::ReadAgentStatus:  \"CONNECTED\"\n"};
  EXPECT_EQ(OutputOf([this] { monitor_.Check(); }), line);
  EXPECT_EQ(OutputOf([this] { monitor_.Check(); }), line);
}

TEST_F(AgentConnMonTest, CheckPrintsTheEmptyStatusToo) {
  EXPECT_EQ(OutputOf([this] { monitor_.Check(); }),
            (Output{"", "AgentConnMon::ReadAgentStatus:  \"\"\n"}));
}

TEST_F(AgentConnMonTest, ReadingPrintsNothing) {
  WriteFile(kAgentStatusPath, "\n\nCONNECTED\n");
  EXPECT_EQ(OutputOf([] { Read(); }), (Output{"", ""}));
}

TEST_F(AgentConnMonTest, ConnectionIsReportedOnceWithoutValues) {
  EXPECT_EQ(CheckWith(monitor_, "  CONNECTED  "), kConnected);
  EXPECT_EQ(CheckWith(monitor_, "CONNECTED"), kNone);
}

TEST_F(AgentConnMonTest, ConnectingIsAChangeThatIsNotReported) {
  EXPECT_EQ(CheckWith(monitor_, "CONNECTED"), kConnected);
  EXPECT_EQ(CheckWith(monitor_, "CONNECTING..."), kNone);
  EXPECT_EQ(CheckWith(monitor_, "CONNECTED"), kConnected);
}

TEST_F(AgentConnMonTest, CertificateWarningIsReportedAsConnectedWithItsText) {
  EXPECT_EQ(CheckWith(monitor_, "CERTIFICATE WARNING"), (Events{{"net02", "CERTIFICATE WARNING"}}));
  EXPECT_EQ(CheckWith(monitor_, "CERTIFICATE WARNING"), kNone);
}

TEST_F(AgentConnMonTest, OtherStatusIsReportedAsAFailureWithItsText) {
  EXPECT_EQ(CheckWith(monitor_, "CONNECTED"), kConnected);
  EXPECT_EQ(CheckWith(monitor_, "DISCONNECTED"), (Events{{"net03", "DISCONNECTED"}}));
  EXPECT_EQ(CheckWith(monitor_, "DISCONNECTED"), kNone);
}

TEST_F(AgentConnMonTest, OtherSpellingsAreFailures) {
  for (const char *status : {"Connected", "CONNECTING", "CONNECTED.", "CERTIFICATE  WARNING",
                             "Certificate Warning", "CONNECTING....", "connecting..."}) {
    EXPECT_EQ(CheckOfANewOne(true, true, status), (Events{{"net03", status}}));
  }
}

TEST_F(AgentConnMonTest, LostStatusIsReportedAsAFailureWithoutText) {
  EXPECT_EQ(CheckWith(monitor_, "CONNECTED"), kConnected);
  WriteFile(kAgentStatusPath, "agent\n1\n");
  EXPECT_EQ(Check(monitor_), (Events{{"net03", ""}}));
  EXPECT_EQ(Check(monitor_), kNone);
}

TEST_F(AgentConnMonTest, RemovedFileIsReportedAsAFailureWithoutText) {
  EXPECT_EQ(CheckWith(monitor_, "CONNECTED"), kConnected);
  std::remove(kAgentStatusPath);
  EXPECT_EQ(Check(monitor_), (Events{{"net03", ""}}));
}

TEST_F(AgentConnMonTest, MissingFileAtTheStartIsNotReported) {
  EXPECT_EQ(Check(monitor_), kNone);
  WriteFile(kAgentStatusPath, "agent\n1\n");
  EXPECT_EQ(Check(monitor_), kNone);
}

TEST_F(AgentConnMonTest, InitForgetsTheStatus) {
  EXPECT_EQ(CheckWith(monitor_, "CONNECTED"), kConnected);
  monitor_.Init();
  EXPECT_EQ(CheckWith(monitor_, "CONNECTED"), kConnected);
}

TEST_F(AgentConnMonTest, NewMonitorReportsAgain) {
  EXPECT_EQ(CheckOfANewOne(true, true, "CONNECTED"), kConnected);
  EXPECT_EQ(CheckOfANewOne(true, true, "CONNECTED"), kConnected);
}

TEST_F(AgentConnMonTest, EventsThatAreNotAllowedAreNotRaised) {
  EXPECT_EQ(CheckOfANewOne(false, true, "CONNECTED"), kNone);
  EXPECT_EQ(CheckOfANewOne(false, true, "CERTIFICATE WARNING"), kNone);
  EXPECT_EQ(CheckOfANewOne(false, true, "DOWN"), (Events{{"net03", "DOWN"}}));
  EXPECT_EQ(CheckOfANewOne(true, false, "CONNECTED"), kConnected);
  EXPECT_EQ(CheckOfANewOne(true, false, "DOWN"), kNone);
}

TEST_F(AgentConnMonTest, StatusIsRememberedThoughItMayNotBeReported) {
  AgentConnMon monitor(true, false);
  EXPECT_EQ(CheckWith(monitor, "CONNECTED"), kConnected);
  EXPECT_EQ(CheckWith(monitor, "DOWN"), kNone);
  EXPECT_EQ(CheckWith(monitor, "CONNECTED"), kConnected);
}

TEST_F(AgentConnMonTest, LongStatusIsCutTo127Bytes) {
  const std::string status(200, 'x');
  EXPECT_EQ(CheckWith(monitor_, status), (Events{{"net03", status.substr(0, 127)}}));
}

TEST_F(AgentConnMonTest, StatusesThatDifferOnlyBeyondTheCutAreAChange) {
  const std::string status(127, 'x');
  EXPECT_EQ(CheckWith(monitor_, status + "1"), (Events{{"net03", status}}));
  EXPECT_EQ(CheckWith(monitor_, status + "2"), (Events{{"net03", status}}));
}

TEST_F(AgentConnMonTest, StartedMonitorChecksAtOnce) {
  WriteFile(kAgentStatusPath, "agent\n1\nDOWN\n");
  monitor_.Start();
  Events events;
  EXPECT_TRUE(Eventually([&] { return !(events = TakeEvents()).empty(); }));
  EXPECT_EQ(events, (Events{{"net03", "DOWN"}}));
}

}  // namespace
}  // namespace ov
