#include "app/client_sender.h"

#include <sys/socket.h>

#include <algorithm>
#include <cstring>
#include <ctime>

#include "base/socket_address.h"
#include "base/unique_fd.h"
#include "event/event_record.h"
#include "event/service_socket.h"
#include "support/support.h"

namespace ov {
namespace {

// With a service that listens, unless a test takes it away.
class ClientSenderTest : public testing::Test {
 protected:
  void Bind() {
    listener_.Reset(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
    const sockaddr_un address = ServiceSocketAddress();
    EXPECT_EQ(bind(listener_.Get(), AsSocketAddress(address), sizeof(address)), 0);
  }

  void Listen() { EXPECT_EQ(listen(listener_.Get(), 1), 0); }

  EventRecord ReceivedRecord() {
    const std::string bytes =
        ReadToEnd(UniqueFd(accept4(listener_.Get(), nullptr, nullptr, SOCK_CLOEXEC)));
    EventRecord record{};
    EXPECT_EQ(bytes.size(), sizeof(record));
    std::memcpy(&record, bytes.data(), std::min(bytes.size(), sizeof(record)));
    return record;
  }

  UniqueFd listener_;
};

TEST_F(ClientSenderTest, RecordIsPrintedAndSentWithTheSameTime) {
  Bind();
  Listen();
  const std::size_t open = CountOpenDescriptors();
  const Output output = OutputOf([] { SendEvent("sys05", "a,b"); });
  EXPECT_EQ(CountOpenDescriptors(), open);
  const EventRecord record = ReceivedRecord();
  EXPECT_EQ(EventIdText(record), "sys05");
  EXPECT_EQ(EventValuesText(record), "a,b");
  EXPECT_EQ(output, (Output{"Event [sys05] (a,b) at " + std::to_string(record.time) + "\n", ""}));
}

TEST_F(ClientSenderTest, MissingAndRefusingSocketsAreTriedAgainWithTheTimeOfTheFirstTry) {
  const Temporarily shortSleeps(g_sleepsAreShort);
  std::int64_t firstTry = 0;
  std::thread service([&] {
    const auto tries = [] { return !TakeSleeps().empty(); };
    EXPECT_TRUE(Eventually(tries));
    firstTry = std::time(nullptr);
    g_sleepsLast = 1;
    EXPECT_TRUE(Eventually([&] { return std::time(nullptr) > firstTry; }));
    Bind();
    g_sleepsLast = 0;
    TakeSleeps();
    EXPECT_TRUE(Eventually(tries));
    Listen();
  });
  EXPECT_EQ(OutputOf([] { SendEvent("sys05", "late"); }).err, "");
  service.join();
  EXPECT_LE(ReceivedRecord().time, firstTry);
}

// Ends the process, and prints the sleeps when it does.
void SendWithoutAService() {
  static const Temporarily shortSleeps(g_sleepsAreShort);
  TakeSleeps();
  std::atexit([] {
    const std::vector<unsigned> sleeps = TakeSleeps();
    std::fprintf(stderr, "%zu sleeps, %td of a second\n", sleeps.size(),
                 std::count(sleeps.begin(), sleeps.end(), 1U));
  });
  SendEvent("sys05", nullptr);
}

TEST_F(ClientSenderTest, AbsentServiceEndsTheProcessAfterThirtyTriesOfASecond) {
  EXPECT_EXIT(SendWithoutAService(), testing::ExitedWithCode(1),
              "^connect: No such file or directory\n30 sleeps, 30 of a second\n$");
}

TEST_F(ClientSenderTest, SocketThatCannotBeMadeEndsTheProcess) {
  const auto sendWithoutASocket = [] {
    static const NoMoreDescriptors untilExit;  // when a sanitizer looks for leaks and needs some
    SendEvent("sys05", nullptr);
  };
  EXPECT_EXIT(sendWithoutASocket(), testing::ExitedWithCode(1), "^socket: Too many open files\n$");
}

}  // namespace
}  // namespace ov
