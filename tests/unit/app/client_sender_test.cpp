#include "app/client_sender.h"

#include <gtest/gtest.h>
#include <sys/socket.h>

#include <algorithm>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <string>
#include <thread>

#include "base/socket_address.h"
#include "base/unique_fd.h"
#include "event/event_record.h"
#include "event/service_socket.h"
#include "support/collectors.h"
#include "support/descriptors.h"
#include "support/output.h"
#include "support/polling.h"

namespace ov {
namespace {

class ClientSenderTest : public testing::Test {
 protected:
  ClientSenderTest() { std::remove(kServiceSocketPath); }

  UniqueFd Bind() {
    UniqueFd listener(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
    const sockaddr_un address = ServiceSocketAddress();
    EXPECT_EQ(bind(listener.Get(), AsSocketAddress(address), sizeof(address)), 0);
    return listener;
  }

  void Listen() {
    listener_ = Bind();
    EXPECT_EQ(listen(listener_.Get(), 1), 0);
  }

  // All that the client sent.
  std::string Received() {
    return ReadToEnd(UniqueFd(accept4(listener_.Get(), nullptr, nullptr, SOCK_CLOEXEC)));
  }

  EventRecord ReceivedRecord() {
    const std::string bytes = Received();
    EventRecord record{};
    EXPECT_EQ(bytes.size(), sizeof(record));
    std::memcpy(&record, bytes.data(), std::min(bytes.size(), sizeof(record)));
    return record;
  }

  UniqueFd listener_;
};

TEST_F(ClientSenderTest, SendsOneRecordAndClosesTheConnection) {
  Listen();
  OutputOf([] { SendEvent("sys05", "a,b"); });
  const std::string texts = std::string("sys05\0\0\0", 8) + "a,b" + std::string(125, '\0');
  EXPECT_EQ(Received().substr(0, 136), texts);
}

TEST_F(ClientSenderTest, SendsARecordOf144Bytes) {
  Listen();
  OutputOf([] { SendEvent("sys05", nullptr); });
  EXPECT_EQ(Received().size(), 144U);
}

TEST_F(ClientSenderTest, PrintsTheRecordThatItSends) {
  Listen();
  const Output output = OutputOf([] { SendEvent("sys05", nullptr); });
  const EventRecord record = ReceivedRecord();
  EXPECT_EQ(output, (Output{"Event [sys05] () at " + std::to_string(record.time) + "\n", ""}));
}

TEST_F(ClientSenderTest, LeavesNoDescriptorOpen) {
  Listen();
  const std::size_t open = CountOpenDescriptors();
  OutputOf([] { SendEvent("sys05", nullptr); });
  EXPECT_EQ(CountOpenDescriptors(), open);
}

TEST_F(ClientSenderTest, WaitsForAServiceThatStartsLater) {
  std::thread service([this] {
    std::this_thread::sleep_for(std::chrono::milliseconds(300));
    Listen();
  });
  const Output output = OutputOf([] { SendEvent("sys05", "late"); });
  service.join();
  EXPECT_EQ(output.err, "");
  EXPECT_EQ(EventValuesText(ReceivedRecord()), "late");
}

TEST_F(ClientSenderTest, TriesARefusingSocketAgain) {
  listener_ = Bind();  // nobody listens yet
  std::thread service([this] {
    std::this_thread::sleep_for(std::chrono::milliseconds(300));
    EXPECT_EQ(listen(listener_.Get(), 1), 0);
  });
  OutputOf([] { SendEvent("sys05", "late"); });
  service.join();
  EXPECT_EQ(EventValuesText(ReceivedRecord()), "late");
}

TEST_F(ClientSenderTest, TakesTheTimeBeforeItConnects) {
  std::int64_t connecting = 0;
  OutputOf([&] {
    std::thread service([&, before = CountOpenDescriptors()] {
      EXPECT_TRUE(Eventually([&] { return CountOpenDescriptors() > before; }));  // the client's
      connecting = std::time(nullptr);
      EXPECT_TRUE(Eventually([&] { return std::time(nullptr) > connecting; }));
      Listen();
    });
    SendEvent("sys05", nullptr);
    service.join();
  });
  EXPECT_LE(ReceivedRecord().time, connecting);
}

TEST(ClientSenderDeathTest, FailureToMakeASocketEndsTheProcess) {
  const auto sendWithoutASocket = [] {
    static const NoMoreDescriptors untilExit;  // when a sanitizer looks for leaks and needs some
    SendEvent("sys05", nullptr);
  };
  EXPECT_EXIT(sendWithoutASocket(), testing::ExitedWithCode(1), "^socket: Too many open files\n$");
}

TEST(ClientSenderDeathTest, AbsentServiceEndsTheProcessAfterThirtyTries) {
  std::remove(kServiceSocketPath);
  const auto start = std::chrono::steady_clock::now();
  EXPECT_EXIT(SendEvent("sys05", nullptr), testing::ExitedWithCode(1),
              "^connect: No such file or directory\n$");
  const auto taken = std::chrono::steady_clock::now() - start;
  EXPECT_GE(taken, std::chrono::seconds(29));
  EXPECT_LT(taken, std::chrono::seconds(45));
}

}  // namespace
}  // namespace ov
