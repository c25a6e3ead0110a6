#include "output/tcp_syslog_sender.h"

#include <fcntl.h>
#include <gtest/gtest.h>

#include <csignal>
#include <string>
#include <vector>

#include "support/collectors.h"
#include "support/descriptors.h"
#include "support/output.h"

namespace ov {
namespace {

const Output kNothing{"", ""};
const Output kSendError{"Error sending message\n", ""};
const Output kRefused{"", "connect: Connection refused\n"};

volatile std::sig_atomic_t brokenPipeSignals = 0;

void CountSignal(int /*signal*/) { brokenPipeSignals = brokenPipeSignals + 1; }

class TcpSyslogSenderTest : public testing::Test {
 protected:
  TcpSyslogSenderTest() {
    std::signal(SIGPIPE, CountSignal);
    sender_.Init(QStringLiteral("127.0.0.1"), collector_.Port());
  }

  Output Connect() {
    return OutputOf([this] { sender_.Connect(); });
  }

  Output Send(const std::string &line) {
    return OutputOf([&] { sender_.Send(QString::fromStdString(line)); });
  }

  // Sends the lines as one batch and returns what arrives.
  std::string Stream(const std::vector<std::string> &lines) {
    EXPECT_EQ(Connect(), kNothing);
    for (const std::string &line : lines) {
      EXPECT_EQ(Send(line), kNothing);
    }
    sender_.Close();
    return ReadToEnd(collector_.Accept());
  }

  TcpCollector collector_;
  TcpSyslogSender sender_;
};

TEST_F(TcpSyslogSenderTest, LineEndsWithALineFeed) {
  EXPECT_EQ(Stream({"<28> perf01 high"}), "<28> perf01 high\n");
}

TEST_F(TcpSyslogSenderTest, LineIsTrimmed) { EXPECT_EQ(Stream({"  x  "}), "x\n"); }

TEST_F(TcpSyslogSenderTest, EveryKindOfWhiteSpaceIsTrimmed) {
  EXPECT_EQ(Stream({"\t\r\n\v\f\u00A0\u1680\u2003\u2028\u3000x\u3000\u2029\u205F\u0085 \n"}),
            "x\n");
}

TEST_F(TcpSyslogSenderTest, WhiteSpaceInsideIsKept) {
  EXPECT_EQ(Stream({"a \t b\nc"}), "a \t b\nc\n");
}

TEST_F(TcpSyslogSenderTest, EmptyLineIsALineFeed) { EXPECT_EQ(Stream({""}), "\n"); }

TEST_F(TcpSyslogSenderTest, BlankLineIsALineFeed) { EXPECT_EQ(Stream({" \t "}), "\n"); }

TEST_F(TcpSyslogSenderTest, TextIsSentAsUtf8) { EXPECT_EQ(Stream({"Gerät ☃"}), "Gerät ☃\n"); }

TEST_F(TcpSyslogSenderTest, LinesOfABatchArriveInTheirOrder) {
  EXPECT_EQ(Stream({"one", "two", "three"}), "one\ntwo\nthree\n");
}

TEST_F(TcpSyslogSenderTest, BatchTakesOneConnection) {
  Stream({"one", "two", "three"});
  EXPECT_FALSE(collector_.HasConnection());
}

TEST_F(TcpSyslogSenderTest, EachConnectMakesAConnectionOfItsOwn) {
  const std::string first = Stream({"one"});
  EXPECT_EQ(first + Stream({"two"}), "one\ntwo\n");
}

TEST_F(TcpSyslogSenderTest, ConnectReturnsTrue) { EXPECT_TRUE(sender_.Connect()); }

TEST_F(TcpSyslogSenderTest, SocketIsClosedInAStartedProgram) {
  sender_.Connect();
  EXPECT_TRUE(IsCloseOnExec(sender_.SocketDescriptor()));
}

// --- Init --------------------------------------------------------------------------------------

TEST_F(TcpSyslogSenderTest, HostMayBeAName) {
  sender_.Init(QStringLiteral("localhost"), collector_.Port());
  EXPECT_EQ(Stream({"x"}), "x\n");
}

TEST_F(TcpSyslogSenderTest, PortIsCutToSixteenBits) {
  sender_.Init(QStringLiteral("127.0.0.1"), 65536 + collector_.Port());
  EXPECT_EQ(Stream({"x"}), "x\n");
}

TEST_F(TcpSyslogSenderTest, InitReturnsTrue) {
  EXPECT_TRUE(TcpSyslogSender().Init(QStringLiteral("127.0.0.1"), 514));
}

TEST_F(TcpSyslogSenderTest, InitMakesNoSocket) {
  EXPECT_EQ(sender_.SocketDescriptor(), -1);
  EXPECT_FALSE(collector_.HasConnection());
}

TEST_F(TcpSyslogSenderTest, InitLeavesTheSocketOpen) {
  sender_.Connect();
  const int socket = sender_.SocketDescriptor();
  sender_.Init(QStringLiteral("127.0.0.1"), 514);
  EXPECT_EQ(sender_.SocketDescriptor(), socket);
  EXPECT_TRUE(IsOpen(socket));
}

TEST_F(TcpSyslogSenderTest, FailedInitIsReportedWithTheResolversText) {
  EXPECT_EQ(
      OutputOf([this] { sender_.Init(QStringLiteral("::1"), 514); }),
      (Output{"Invalid IP address or hostname: Address family for hostname not supported\n", ""}));
}

TEST_F(TcpSyslogSenderTest, FailedInitReturnsFalse) {
  bool initialised = true;
  OutputOf([&] { initialised = sender_.Init(QStringLiteral("::1"), 514); });
  EXPECT_FALSE(initialised);
}

TEST_F(TcpSyslogSenderTest, FailedInitKeepsTheDestination) {
  OutputOf([this] { sender_.Init(QStringLiteral("::1"), 514); });
  EXPECT_EQ(Stream({"x"}), "x\n");
}

// --- Failures ----------------------------------------------------------------------------------

TEST_F(TcpSyslogSenderTest, RefusedConnectionIsReported) {
  sender_.Init(QStringLiteral("127.0.0.1"), ClosedPort());
  EXPECT_EQ(Connect(), kRefused);
}

TEST_F(TcpSyslogSenderTest, RefusedConnectReturnsFalse) {
  sender_.Init(QStringLiteral("127.0.0.1"), ClosedPort());
  bool connected = true;
  OutputOf([&] { connected = sender_.Connect(); });
  EXPECT_FALSE(connected);
}

TEST_F(TcpSyslogSenderTest, EachFailedConnectLeavesItsDescriptorOpen) {
  sender_.Init(QStringLiteral("127.0.0.1"), ClosedPort());
  const std::size_t open = CountOpenDescriptors();
  Connect();
  Connect();
  EXPECT_EQ(CountOpenDescriptors(), open + 2);
}

TEST_F(TcpSyslogSenderTest, ConnectSucceedsAfterAFailure) {
  sender_.Init(QStringLiteral("127.0.0.1"), ClosedPort());
  Connect();
  sender_.Init(QStringLiteral("127.0.0.1"), collector_.Port());
  EXPECT_EQ(Stream({"x"}), "x\n");
}

TEST_F(TcpSyslogSenderTest, ConnectWithoutADescriptorLeftIsReported) {
  const Output output = OutputOf([this] {
    const NoMoreDescriptors none;
    sender_.Connect();
  });
  EXPECT_EQ(output, (Output{"Error creating socket\n", ""}));
}

TEST_F(TcpSyslogSenderTest, ConnectWithoutADescriptorLeftReturnsFalse) {
  bool connected = true;
  OutputOf([&] {
    const NoMoreDescriptors none;
    connected = sender_.Connect();
  });
  EXPECT_FALSE(connected);
}

TEST_F(TcpSyslogSenderTest, SendWithoutASocketIsReported) { EXPECT_EQ(Send("x"), kSendError); }

// The system takes an address of no family as a wish to be disconnected, and grants it.
TEST_F(TcpSyslogSenderTest, SendToADestinationNeverGivenIsReportedWithoutASignal) {
  TcpSyslogSender sender;
  EXPECT_EQ(OutputOf([&] { sender.Connect(); }), kNothing);
  EXPECT_EQ(OutputOf([&] { sender.Send(QStringLiteral("x")); }), kSendError);
  EXPECT_EQ(brokenPipeSignals, 0);
}

TEST_F(TcpSyslogSenderTest, SendAfterAResetIsReportedWithoutASignal) {
  sender_.Connect();
  UniqueFd connection = collector_.Accept();
  ResetConnection(connection);
  ASSERT_TRUE(WaitForHangUp(sender_.SocketDescriptor()));
  Send("lost to the reset");
  EXPECT_EQ(Send("x"), kSendError);
  EXPECT_EQ(brokenPipeSignals, 0);
}

// --- Close -------------------------------------------------------------------------------------

TEST_F(TcpSyslogSenderTest, CloseClosesTheSocket) {
  sender_.Connect();
  const int socket = sender_.SocketDescriptor();
  sender_.Close();
  EXPECT_FALSE(IsOpen(socket));
  EXPECT_EQ(sender_.SocketDescriptor(), -1);
}

TEST_F(TcpSyslogSenderTest, SecondCloseDoesNotCloseWhatOthersOpened) {
  sender_.Connect();
  sender_.Close();
  const UniqueFd other(open("/dev/null", O_RDONLY | O_CLOEXEC));
  sender_.Close();
  EXPECT_TRUE(IsOpen(other.Get()));
}

TEST_F(TcpSyslogSenderTest, EndOfItsLifeClosesTheSocket) {
  int socket = -1;
  {
    TcpSyslogSender sender;
    sender.Init(QStringLiteral("127.0.0.1"), collector_.Port());
    sender.Connect();
    socket = sender.SocketDescriptor();
  }
  EXPECT_FALSE(IsOpen(socket));
}

}  // namespace
}  // namespace ov
