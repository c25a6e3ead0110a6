#include "service/event_intake.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/socket.h>

#include <array>
#include <cerrno>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <functional>
#include <string>
#include <thread>

#include "base/unique_fd.h"
#include "support/descriptors.h"
#include "support/files.h"
#include "support/output.h"

namespace ov {
namespace {

using Clock = std::chrono::steady_clock;

std::string ImageOf(const EventRecord &record) {
  return {reinterpret_cast<const char *>(&record), sizeof(record)};
}

EventRecord RecordOf(const char *id, const char *values) {
  EventRecord record = MakeEventRecord(id, values);
  record.time = 1700000000;
  return record;
}

class EventIntakeTest : public testing::Test {
 protected:
  EventIntakeTest() { Connect(); }

  void Connect() {
    std::array<int, 2> ends{};
    EXPECT_EQ(socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends.data()), 0);
    client_.Reset(ends[0]);
    service_.Reset(ends[1]);
    EXPECT_EQ(fcntl(service_.Get(), F_SETFL, O_NONBLOCK), 0);
  }

  void Define(const QString &id) { catalogue_.insert(id, EventDefinition()); }

  void Allow(const std::string &ids) {
    static std::int64_t time = 1'600'000'000;
    WriteFile(kSettingsPath, "allowed=" + ids + "\n");
    SetModificationTime(kSettingsPath, ++time);  // or Qt takes it for the file of another test
    OutputOf([this] { settings_.parseSettings(); });
    std::remove(kSettingsPath);
  }

  void DefineAndAllow(const char *id) {
    Define(QString::fromLatin1(id));
    Allow(id);
  }

  void Write(const std::string &bytes) {
    EXPECT_EQ(send(client_.Get(), bytes.data(), bytes.size(), MSG_NOSIGNAL),
              static_cast<ssize_t>(bytes.size()));
  }

  Output Handle() {
    return OutputOf([this] {
      errno = 0;
      HandleConnection(service_.Get(), catalogue_, settings_, queue_);
    });
  }

  // What comes of a connection whose client acts while it is waited for. A client that would come
  // late to that, on a machine that stalls, does not act, and it is done anew.
  Output HandleWhile(const std::function<void()> &act) {
    for (;;) {
      const auto start = Clock::now();
      bool acted = false;
      std::thread client([&] {
        std::this_thread::sleep_for(std::chrono::milliseconds(300));
        if (Clock::now() - start < kIntakeTimeout / 2) {
          act();
          acted = true;
        }
      });
      Output output = Handle();
      client.join();
      if (acted) {
        return output;
      }
      Connect();
    }
  }

  Output Take(const EventRecord &record) {
    Write(ImageOf(record));
    return Handle();
  }

  // The images of all queued records, one after the other.
  std::string Queued() {
    std::string images;
    for (const EventRecord &event : queue_.TakeAll()) {
      images += ImageOf(event);
    }
    return images;
  }

  EventCatalogue catalogue_;
  Settings settings_;
  EventQueue queue_;
  UniqueFd client_;
  UniqueFd service_;
};

TEST_F(EventIntakeTest, AllowedEventIsQueuedWithAll144Bytes) {
  DefineAndAllow("perf01");
  std::string image = ImageOf(RecordOf("perf01", "95,80"));
  image.replace(50, 20, 20, '\xEE');  // behind the texts, where nobody looks
  Write(image);
  Handle();
  EXPECT_EQ(Queued(), image);
}

TEST_F(EventIntakeTest, AllowedEventIsPrinted) {
  DefineAndAllow("perf01");
  EXPECT_EQ(Take(RecordOf("perf01", "95,80")),
            (Output{"> Received event\nEvent [perf01] (95,80) at 1700000000\n", ""}));
}

TEST_F(EventIntakeTest, UndefinedEventIsPrintedAndReported) {
  Allow("perf01");
  EXPECT_EQ(Take(RecordOf("perf01", nullptr)),
            (Output{"> Received event\nEvent [perf01] () at 1700000000\n"
                    "Event perf01 is not defined\n",
                    ""}));
}

TEST_F(EventIntakeTest, UndefinedEventIsNotQueued) {
  Allow("perf01");
  Take(RecordOf("perf01", nullptr));
  EXPECT_EQ(Queued(), "");
}

TEST_F(EventIntakeTest, UndefinedEventStaysUndefined) {
  Take(RecordOf("perf01", nullptr));
  EXPECT_EQ(catalogue_.size(), 0);
}

TEST_F(EventIntakeTest, DefinitionOfAnotherCaseDoesNotCount) {
  DefineAndAllow("PERF01");
  EXPECT_EQ(Take(RecordOf("perf01", nullptr)).out,
            "> Received event\nEvent [perf01] () at 1700000000\nEvent perf01 is not defined\n");
}

TEST_F(EventIntakeTest, EventNotAllowedIsPrintedAndDroppedWithoutAWord) {
  Define(QStringLiteral("perf01"));
  Allow("sys05");
  EXPECT_EQ(Take(RecordOf("perf01", nullptr)),
            (Output{"> Received event\nEvent [perf01] () at 1700000000\n", ""}));
}

TEST_F(EventIntakeTest, EventNotAllowedIsNotQueued) {
  Define(QStringLiteral("perf01"));
  Allow("sys05");
  Take(RecordOf("perf01", nullptr));
  EXPECT_EQ(Queued(), "");
}

TEST_F(EventIntakeTest, EmptyIdIsReportedAsNotDefined) {
  EXPECT_EQ(Take(RecordOf("", nullptr)).out,
            "> Received event\nEvent [] () at 1700000000\nEvent  is not defined\n");
}

TEST_F(EventIntakeTest, IdIsReadAsLatin1) {
  Define(QString::fromUtf8("ü"));
  Allow("\"\\xfc\"");
  const EventRecord record = RecordOf("\xFC", nullptr);
  Take(record);
  EXPECT_EQ(Queued(), ImageOf(record));
}

TEST_F(EventIntakeTest, IdWithoutNulRunsOnIntoTheValues) {
  EventRecord record = RecordOf("", "95");
  record.id.fill('i');
  EXPECT_EQ(Take(record).out,
            "> Received event\nEvent [iiiiiiii95] (95) at 1700000000\n"
            "Event iiiiiiii95 is not defined\n");
}

TEST_F(EventIntakeTest, RecordWithoutNulEndsWithTheRecord) {
  Write(std::string(144, 'x'));
  const std::string whole(144, 'x');
  EXPECT_EQ(Handle().out, "> Received event\nEvent [" + whole + "] (" + std::string(136, 'x') +
                              ") at 8680820740569200760\nEvent " + whole + " is not defined\n");
}

TEST_F(EventIntakeTest, EventsAreQueuedInTheOrderOfTheirArrival) {
  DefineAndAllow("perf01");
  Take(RecordOf("perf01", "first"));
  Connect();
  Take(RecordOf("perf01", "second"));
  EXPECT_EQ(Queued(), ImageOf(RecordOf("perf01", "first")) + ImageOf(RecordOf("perf01", "second")));
}

// --- What the connection holds -----------------------------------------------------------------

TEST_F(EventIntakeTest, ClientThatOnlyClosesIsReported) {
  client_.Reset();
  EXPECT_EQ(Handle(), (Output{"", "read: Success\n"}));
}

TEST_F(EventIntakeTest, FailedReadIsReported) {
  service_.Reset();
  EXPECT_EQ(Handle(), (Output{"", "read: Bad file descriptor\n"}));
}

TEST_F(EventIntakeTest, ShortRecordIsTakenAndItsRestIsZero) {
  const std::string image = std::string("perf01\0\0", 8) + std::string(136, '1');
  for (const char *id : {"p", "pe", "per", "perf", "perf0", "perf01"}) {
    Define(QString::fromLatin1(id));
  }
  Allow("p pe per perf perf0 perf01");
  // From the longest on, so that something longer was in memory before.
  for (std::size_t size = image.size() - 1; size >= 1; --size) {
    Connect();
    Write(image.substr(0, size));
    Handle();
    EXPECT_EQ(Queued(), image.substr(0, size) + std::string(image.size() - size, '\0')) << size;
  }
}

TEST_F(EventIntakeTest, RecordIsTakenAfterItsClientHasClosed) {
  DefineAndAllow("perf01");
  Write(ImageOf(RecordOf("perf01", "95")));
  client_.Reset();
  Handle();
  EXPECT_EQ(Queued(), ImageOf(RecordOf("perf01", "95")));
}

TEST_F(EventIntakeTest, OnlyTheFirstOfTwoRecordsIsTaken) {
  DefineAndAllow("perf01");
  Write(ImageOf(RecordOf("perf01", "first")) + ImageOf(RecordOf("perf01", "second")));
  EXPECT_EQ(Handle().out, "> Received event\nEvent [perf01] (first) at 1700000000\n");
  EXPECT_EQ(Queued(), ImageOf(RecordOf("perf01", "first")));
}

TEST_F(EventIntakeTest, ConnectionStaysOpen) {
  Take(RecordOf("perf01", nullptr));
  EXPECT_TRUE(IsOpen(service_.Get()));
}

TEST_F(EventIntakeTest, ClientGetsNoAnswer) {
  Take(RecordOf("perf01", nullptr));
  service_.Reset();
  char byte = '\0';
  EXPECT_EQ(recv(client_.Get(), &byte, 1, 0), 0);
}

// --- Clients that take their time --------------------------------------------------------------

TEST_F(EventIntakeTest, ClientThatWritesWhileItIsWaitedForIsTaken) {
  DefineAndAllow("perf01");
  const EventRecord record = RecordOf("perf01", "late");
  EXPECT_EQ(HandleWhile([&] { Write(ImageOf(record)); }),
            (Output{"> Received event\nEvent [perf01] (late) at 1700000000\n", ""}));
  EXPECT_EQ(Queued(), ImageOf(record));
}

TEST_F(EventIntakeTest, ClientThatClosesWhileItIsWaitedForIsReportedAndNotGivenUp) {
  const Output output = HandleWhile([this] { client_.Reset(); });
  EXPECT_EQ(output.out, "");
  EXPECT_EQ(output.err.substr(0, 6), "read: ");
  EXPECT_NE(output.err, "read: Connection timed out\n");
}

TEST_F(EventIntakeTest, ClientThatSendsNothingIsGivenUpAfterFiveSeconds) {
  const auto start = Clock::now();
  EXPECT_EQ(Handle(), (Output{"", "read: Connection timed out\n"}));
  const auto taken = Clock::now() - start;
  EXPECT_GE(taken, std::chrono::milliseconds(4900));
  EXPECT_LT(taken, std::chrono::seconds(20));
}

TEST_F(EventIntakeTest, ClientThatWasGivenUpFailsToWrite) {
  Handle();
  EXPECT_EQ(send(client_.Get(), "x", 1, MSG_NOSIGNAL), -1);
  EXPECT_EQ(errno, EPIPE);
}

}  // namespace
}  // namespace ov
