#include "output/udp_syslog_sender.h"

#include <fcntl.h>
#include <gtest/gtest.h>

#include <optional>
#include <string>

#include "support/collectors.h"
#include "support/descriptors.h"
#include "support/output.h"

namespace ov {
namespace {

const Output kSendError{"Error sending message\n", ""};

class UdpSyslogSenderTest : public testing::Test {
 protected:
  bool Init() { return sender_.Init(QStringLiteral("127.0.0.1"), collector_.Port()); }

  Output InitWithout(const QString &host) {
    return OutputOf([&] { sender_.Init(host, collector_.Port()); });
  }

  Output Send(const std::string &line) {
    return OutputOf([&] { sender_.Send(QString::fromStdString(line)); });
  }

  // What arrives when the line is sent.
  std::optional<std::string> Datagram(const std::string &line) {
    EXPECT_EQ(Send(line), (Output{"", ""}));
    return collector_.Receive();
  }

  UdpCollector collector_;
  UdpSyslogSender sender_;
};

TEST_F(UdpSyslogSenderTest, LineIsOneDatagramWithNothingAdded) {
  Init();
  EXPECT_EQ(Datagram("<28> perf01 high"), "<28> perf01 high");
}

TEST_F(UdpSyslogSenderTest, WhiteSpaceAtTheEndsIsSent) {
  Init();
  EXPECT_EQ(Datagram("  x \t\n"), "  x \t\n");
}

TEST_F(UdpSyslogSenderTest, TextIsSentAsUtf8) {
  Init();
  EXPECT_EQ(Datagram("Gerät ☃"), "Gerät ☃");
}

TEST_F(UdpSyslogSenderTest, EmptyLineIsAnEmptyDatagram) {
  Init();
  EXPECT_EQ(Datagram(""), "");
}

TEST_F(UdpSyslogSenderTest, LinesArriveInTheirOrder) {
  Init();
  Send("one");
  Send("two");
  const std::optional<std::string> first = collector_.Receive();
  EXPECT_EQ(first.value_or("") + " " + collector_.Receive().value_or(""), "one two");
}

TEST_F(UdpSyslogSenderTest, HostMayBeAName) {
  sender_.Init(QStringLiteral("localhost"), collector_.Port());
  EXPECT_EQ(Datagram("x"), "x");
}

TEST_F(UdpSyslogSenderTest, PortIsCutToSixteenBits) {
  sender_.Init(QStringLiteral("127.0.0.1"), 65536 + collector_.Port());
  EXPECT_EQ(Datagram("x"), "x");
}

TEST_F(UdpSyslogSenderTest, NegativePortIsCutToSixteenBits) {
  sender_.Init(QStringLiteral("127.0.0.1"), collector_.Port() - 65536);
  EXPECT_EQ(Datagram("x"), "x");
}

TEST_F(UdpSyslogSenderTest, LineTooLongForADatagramIsReported) {
  Init();
  EXPECT_EQ(Send(std::string(70'000, 'x')), kSendError);
}

TEST_F(UdpSyslogSenderTest, NextLineIsSentAfterAFailure) {
  Init();
  Send(std::string(70'000, 'x'));
  EXPECT_EQ(Datagram("next"), "next");
}

TEST_F(UdpSyslogSenderTest, MissingCollectorIsNotNoticed) {
  sender_.Init(QStringLiteral("127.0.0.1"), ClosedPort());
  EXPECT_EQ(Send("x"), (Output{"", ""}));
}

TEST_F(UdpSyslogSenderTest, HasNoSocketAtFirst) { EXPECT_EQ(sender_.SocketDescriptor(), -1); }

TEST_F(UdpSyslogSenderTest, SendWithoutInitIsReported) { EXPECT_EQ(Send("x"), kSendError); }

TEST_F(UdpSyslogSenderTest, SendToADestinationNeverFoundIsReported) {
  InitWithout(QStringLiteral("::1"));
  EXPECT_EQ(Send("x"), kSendError);
}

TEST_F(UdpSyslogSenderTest, InitReturnsTrue) { EXPECT_TRUE(Init()); }

TEST_F(UdpSyslogSenderTest, InitPrintsNothing) {
  EXPECT_EQ(OutputOf([this] { Init(); }), (Output{"", ""}));
}

TEST_F(UdpSyslogSenderTest, InitOfAnIpv6AddressFailsWithTheResolversText) {
  EXPECT_EQ(
      InitWithout(QStringLiteral("::1")),
      (Output{"Invalid IP address or hostname: Address family for hostname not supported\n", ""}));
}

TEST_F(UdpSyslogSenderTest, InitOfAnEmptyHostFailsWithTheResolversText) {
  EXPECT_EQ(InitWithout(QString()),
            (Output{"Invalid IP address or hostname: Name or service not known\n", ""}));
}

TEST_F(UdpSyslogSenderTest, FailedInitReturnsFalse) {
  bool initialised = true;
  OutputOf([&] { initialised = sender_.Init(QStringLiteral("::1"), 514); });
  EXPECT_FALSE(initialised);
}

TEST_F(UdpSyslogSenderTest, FailedInitLeavesASocketOpen) {
  InitWithout(QStringLiteral("::1"));
  EXPECT_TRUE(IsOpen(sender_.SocketDescriptor()));
}

TEST_F(UdpSyslogSenderTest, FailedInitKeepsTheDestination) {
  Init();
  InitWithout(QStringLiteral("::1"));
  EXPECT_EQ(Datagram("x"), "x");
}

TEST_F(UdpSyslogSenderTest, CloseKeepsTheDestination) {
  Init();
  sender_.Close();
  InitWithout(QStringLiteral("::1"));
  EXPECT_EQ(Datagram("x"), "x");
}

TEST_F(UdpSyslogSenderTest, InitWithoutADescriptorLeftIsReported) {
  const Output output = OutputOf([this] {
    const NoMoreDescriptors none;
    Init();
  });
  EXPECT_EQ(output, (Output{"Error creating socket\n", ""}));
}

TEST_F(UdpSyslogSenderTest, InitWithoutADescriptorLeftReturnsFalse) {
  bool initialised = true;
  OutputOf([&] {
    const NoMoreDescriptors none;
    initialised = Init();
  });
  EXPECT_FALSE(initialised);
}

TEST_F(UdpSyslogSenderTest, NewInitMovesToTheNewCollector) {
  const UdpCollector other;
  sender_.Init(QStringLiteral("127.0.0.1"), other.Port());
  Init();
  EXPECT_EQ(Datagram("x"), "x");
}

TEST_F(UdpSyslogSenderTest, EachInitClosesTheSocketBefore) {
  Init();
  const std::size_t open = CountOpenDescriptors();
  Init();
  EXPECT_EQ(CountOpenDescriptors(), open);
}

TEST_F(UdpSyslogSenderTest, FailedInitClosesTheSocketBefore) {
  Init();
  const std::size_t open = CountOpenDescriptors();
  InitWithout(QStringLiteral("::1"));
  EXPECT_EQ(CountOpenDescriptors(), open);
}

TEST_F(UdpSyslogSenderTest, SocketIsClosedInAStartedProgram) {
  Init();
  EXPECT_TRUE(IsCloseOnExec(sender_.SocketDescriptor()));
}

TEST_F(UdpSyslogSenderTest, CloseClosesTheSocket) {
  Init();
  const int socket = sender_.SocketDescriptor();
  sender_.Close();
  EXPECT_FALSE(IsOpen(socket));
  EXPECT_EQ(sender_.SocketDescriptor(), -1);
}

TEST_F(UdpSyslogSenderTest, SecondCloseDoesNotCloseWhatOthersOpened) {
  Init();
  sender_.Close();
  const UniqueFd other(open("/dev/null", O_RDONLY | O_CLOEXEC));
  sender_.Close();
  EXPECT_TRUE(IsOpen(other.Get()));
}

TEST_F(UdpSyslogSenderTest, EndOfItsLifeClosesTheSocket) {
  int socket = -1;
  {
    UdpSyslogSender sender;
    sender.Init(QStringLiteral("127.0.0.1"), 514);
    socket = sender.SocketDescriptor();
  }
  EXPECT_FALSE(IsOpen(socket));
}

}  // namespace
}  // namespace ov
