#include "output/udp_syslog_sender.h"

#include "support/support.h"

namespace ov {
namespace {

class UdpSyslogSenderTest : public testing::Test {
 protected:
  bool Init(const char *host = "127.0.0.1") {
    bool isDone = false;
    OutputOf([&] { isDone = sender_.Init(QString::fromUtf8(host), collector_.Port()); });
    return isDone;
  }

  Output Send(const std::string &line) {
    return OutputOf([&] { sender_.Send(QString::fromStdString(line)); });
  }

  // What arrives when the line is sent.
  std::string Datagram(const std::string &line) {
    EXPECT_EQ(Send(line), kNothing);
    return collector_.Receive();
  }

  UdpCollector collector_;
  UdpSyslogSender sender_;
};

TEST_F(UdpSyslogSenderTest, EachLineIsOneDatagramOfItsUtf8BytesWithNothingAdded) {
  EXPECT_TRUE(Init());
  for (const char *line : {"<28> perf01 high", "  x \t\n", "Gerät ☃", ""}) {
    EXPECT_EQ(Datagram(line), line);
  }
}

TEST_F(UdpSyslogSenderTest, LineTooLongForADatagramIsReportedAndTheNextIsSent) {
  Init();
  EXPECT_EQ(Send(std::string(70'000, 'x')), kSendError);
  EXPECT_EQ(Datagram("next"), "next");
}

TEST_F(UdpSyslogSenderTest, MissingCollectorIsNotNoticed) {
  sender_.Init(QStringLiteral("127.0.0.1"), ClosedPort());
  EXPECT_EQ(Send("x"), kNothing);
}

TEST_F(UdpSyslogSenderTest, SendWithoutASocketOrADestinationIsReported) {
  EXPECT_EQ(Send("x"), kSendError);
  EXPECT_FALSE(Init("::1"));
  EXPECT_EQ(Send("x"), kSendError);
}

TEST_F(UdpSyslogSenderTest, FailedInitAndCloseKeepTheDestination) {
  Init();
  sender_.Close();
  EXPECT_EQ(Send("x"), kSendError);
  Init("::1");
  EXPECT_EQ(Datagram("x"), "x");
}

TEST_F(UdpSyslogSenderTest, SocketThatCannotBeMadeIsReported) {
  const Output output = OutputOf([this] {
    const NoMoreDescriptors none;
    EXPECT_FALSE(sender_.Init(QStringLiteral("127.0.0.1"), collector_.Port()));
  });
  EXPECT_EQ(output, (Output{"Error creating socket\n", ""}));
}

TEST_F(UdpSyslogSenderTest, NewInitMovesToTheNewCollector) {
  const UdpCollector other;
  sender_.Init(QStringLiteral("127.0.0.1"), other.Port());
  Init();
  EXPECT_EQ(Datagram("x"), "x");
}

TEST_F(UdpSyslogSenderTest, OneSocketIsOpenFromInitToClose) {
  const std::size_t open = CountOpenDescriptors();
  Init();
  Init();
  EXPECT_EQ(CountOpenDescriptors(), open + 1);
  EXPECT_FALSE(HasInheritableDescriptors());
  Init("::1");
  EXPECT_EQ(CountOpenDescriptors(), open + 1);
  sender_.Close();
  sender_.Close();
  EXPECT_EQ(CountOpenDescriptors(), open);
  Init();
  sender_ = UdpSyslogSender();
  EXPECT_EQ(CountOpenDescriptors(), open);
}

}  // namespace
}  // namespace ov
