#include "output/tcp_syslog_sender.h"

#include <csignal>

#include "support/support.h"

namespace ov {
namespace {

volatile std::sig_atomic_t brokenPipeSignals = 0;

Output Send(const UniqueFd &connection, const std::string &line) {
  return OutputOf([&] { TcpSyslogSender::Send(connection.Get(), QString::fromStdString(line)); });
}

class TcpSyslogSenderTest : public testing::Test {
 protected:
  TcpSyslogSenderTest() {
    brokenPipeSignals = 0;
    std::signal(SIGPIPE, [](int /*signal*/) { brokenPipeSignals = brokenPipeSignals + 1; });
    EXPECT_TRUE(sender_.Init(QStringLiteral("127.0.0.1"), collector_.Port()));
  }

  UniqueFd Connect(const Output &expected = kNothing) {
    UniqueFd connection;
    EXPECT_EQ(OutputOf([&] { connection = sender_.Connect(); }), expected);
    EXPECT_FALSE(HasInheritableDescriptors());
    return connection;
  }

  // Sends the lines over one connection and returns what arrives.
  std::string Stream(const std::vector<std::string> &lines) {
    UniqueFd connection = Connect();
    for (const std::string &line : lines) {
      EXPECT_EQ(Send(connection, line), kNothing);
    }
    connection.Reset();
    return ReadToEnd(collector_.Accept());
  }

  TcpCollector collector_;
  TcpSyslogSender sender_;
};

TEST_F(TcpSyslogSenderTest, LinesOfOneConnectArriveOverOneConnectionEachEndedByALineFeed) {
  for (int batch = 0; batch < 2; ++batch) {
    EXPECT_FALSE(collector_.HasConnection());
    EXPECT_EQ(Stream({"<28> perf01 high", "", "Gerät ☃"}), "<28> perf01 high\n\nGerät ☃\n");
  }
}

TEST_F(TcpSyslogSenderTest, WhiteSpaceIsTrimmedAtTheEndsOnly) {
  EXPECT_EQ(Stream({"  x  ", "a \t b\nc", " \t ",
                    "\t\r\n\v\f\u00A0\u1680\u2003\u2028\u3000y\u3000\u2029\u205F\u0085 \n"}),
            "x\na \t b\nc\n\ny\n");
}

TEST_F(TcpSyslogSenderTest, FailedInitKeepsTheDestination) {
  OutputOf([this] { EXPECT_FALSE(sender_.Init(QStringLiteral("::1"), 514)); });
  EXPECT_EQ(Stream({"x"}), "x\n");
}

TEST_F(TcpSyslogSenderTest, EachRefusedConnectIsReportedAndLeavesItsDescriptorOpen) {
  const Output refused{"", "connect: Connection refused\n"};
  sender_.Init(QStringLiteral("127.0.0.1"), ClosedPort());
  const std::size_t open = CountOpenDescriptors();
  EXPECT_FALSE(Connect(refused).IsOpen());
  EXPECT_FALSE(Connect(refused).IsOpen());
  EXPECT_EQ(CountOpenDescriptors(), open + 2);
  sender_.Init(QStringLiteral("127.0.0.1"), collector_.Port());
  EXPECT_EQ(Stream({"x"}), "x\n");
}

TEST_F(TcpSyslogSenderTest, SocketThatCannotBeMadeIsReported) {
  const Output output = OutputOf([this] {
    const NoMoreDescriptors none;
    EXPECT_FALSE(sender_.Connect().IsOpen());
  });
  EXPECT_EQ(output, (Output{"Error creating socket\n", ""}));
}

// The system takes an address of no family as a wish to be disconnected, and grants it.
TEST_F(TcpSyslogSenderTest, SendToADestinationNeverGivenIsReportedWithoutASignal) {
  sender_ = TcpSyslogSender();
  EXPECT_EQ(Send(Connect(), "x"), kSendError);
  EXPECT_EQ(brokenPipeSignals, 0);
}

TEST_F(TcpSyslogSenderTest, SendAfterAResetIsReportedWithoutASignal) {
  const UniqueFd connection = Connect();
  UniqueFd collectors = collector_.Accept();
  ResetConnection(collectors);
  ASSERT_TRUE(WaitForHangUp(connection.Get()));
  Send(connection, "lost to the reset");
  EXPECT_EQ(Send(connection, "x"), kSendError);
  EXPECT_EQ(brokenPipeSignals, 0);
}

}  // namespace
}  // namespace ov
