#include "service/event_intake.h"

#include <sys/socket.h>

#include <cerrno>
#include <cstring>

#include "base/socket_address.h"
#include "base/unique_fd.h"
#include "event/service_socket.h"
#include "support/support.h"

namespace ov {
namespace {

using std::chrono::milliseconds;

constexpr milliseconds kLong{20'000};

std::string ImageOf(const EventRecord &record) {
  return {reinterpret_cast<const char *>(&record), sizeof(record)};
}

std::string Image(const char *id, const char *values = nullptr) {
  EventRecord record = MakeEventRecord(id, values);
  record.time = 1700000000;
  return ImageOf(record);
}

std::string Printed(const std::string &id, const std::string &values) {
  return "> Received event\nEvent [" + id + "] (" + values + ") at 1700000000\n";
}

UniqueFd MakeSocket(int flags = 0) {
  return UniqueFd(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | flags, 0));
}

void Write(const UniqueFd &client, const std::string &bytes) {
  EXPECT_EQ(send(client.Get(), bytes.data(), bytes.size(), MSG_NOSIGNAL),
            static_cast<ssize_t>(bytes.size()));
}

// "perf01" is defined and allowed.
class EventIntakeTest : public testing::Test {
 protected:
  EventIntakeTest() {
    Define("perf01");
    Allow("perf01");
    const sockaddr_un address = ServiceSocketAddress();
    EXPECT_EQ(bind(listener_.Get(), AsSocketAddress(address), sizeof(address)), 0);
    EXPECT_EQ(listen(listener_.Get(), SOMAXCONN), 0);
  }

  void Define(const char *id) { catalogue_.Replace({{QString::fromUtf8(id), EventDefinition()}}); }

  void Allow(const std::string &ids) {
    WriteSettings("allowed=" + ids + "\n");
    OutputOf([this] { settings_.parseSettings(); });
  }

  static UniqueFd Connect() {
    UniqueFd client = MakeSocket();
    const sockaddr_un address = ServiceSocketAddress();
    EXPECT_EQ(connect(client.Get(), AsSocketAddress(address), sizeof(address)), 0);
    return client;
  }

  static UniqueFd ConnectAndWrite(const std::string &bytes) {
    UniqueFd client = Connect();
    Write(client, bytes);
    return client;
  }

  // What is printed until there is nothing more to take in.
  Output TakeIn() {
    return OutputOf([this] {
      int error = 0;
      do {
        errno = 0;
        error = intake_.TakeInClient(listener_.Get());
      } while (error == 0);
      EXPECT_EQ(error, EAGAIN);
    });
  }

  // Takes in as many clients, none of which writes.
  std::vector<UniqueFd> SetAside(std::size_t count) {
    std::vector<UniqueFd> clients;
    for (std::size_t client = 0; client < count; ++client) {
      clients.push_back(Connect());
      EXPECT_EQ(TakeIn(), (Output{"", ""}));
    }
    return clients;
  }

  bool HasSomethingToDo() {
    return TimeOf([this] { intake_.WaitForClient(listener_.Get(), kLong); }) < kLong;
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
  EventIntake intake_{catalogue_, settings_, queue_};
  UniqueFd listener_ = MakeSocket(SOCK_NONBLOCK);
};

// --- Records -----------------------------------------------------------------------------------

struct RecordRow : Row {
  const char *defined;
  std::string allowed;
  const char *id;
  std::string verdict;  // printed after the record
  bool isQueued = false;
};

class IntakeRecord : public EventIntakeTest, public testing::WithParamInterface<RecordRow> {};

TEST_P(IntakeRecord, IsChecked) {
  const RecordRow &row = GetParam();
  Define(row.defined);
  Allow(row.allowed);
  ConnectAndWrite(Image(row.id, "95,80"));
  EXPECT_EQ(TakeIn(), (Output{Printed(row.id, "95,80") + row.verdict, ""}));
  EXPECT_EQ(Queued(), row.isQueued ? Image(row.id, "95,80") : "");
  EXPECT_EQ(catalogue_.IsDefined(row.id), row.verdict.empty());
}

const RecordRow kIntakeRecordRows[] = {
    {"DefinedAndAllowedEventIsQueued", "perf01", "perf01", "perf01", "", true},
    {"EventNotAllowedIsDroppedWithoutAWord", "perf01", "sys05", "perf01", ""},
    {"UndefinedEventIsReportedAndStaysUndefined", "sys05", "perf01", "perf01",
     "Event perf01 is not defined\n"},
    {"DefinitionOfAnotherCaseDoesNotCount", "PERF01", "perf01", "perf01",
     "Event perf01 is not defined\n"},
    {"EmptyIdIsReported", "perf01", "", "", "Event  is not defined\n"},
    {"IdIsLookedUpAsLatin1", "ü", "\"\\xfc\"", "\xFC", "", true},
    {"IdIsNotLookedUpAsUtf8", "ü", "\"\\xfc\"", "ü", "Event ü is not defined\n"}};

INSTANTIATE_TEST_SUITE_P(Rows, IntakeRecord, testing::ValuesIn(kIntakeRecordRows), OutcomeOf());

TEST_F(EventIntakeTest, RecordWithoutNulEndsWithTheRecord) {
  const std::string whole(144, 'x');
  ConnectAndWrite(whole);
  EXPECT_EQ(TakeIn().out, "> Received event\nEvent [" + whole + "] (" + std::string(136, 'x') +
                              ") at 8680820740569200760\nEvent " + whole + " is not defined\n");
}

TEST_F(EventIntakeTest, ShortRecordIsTakenAndItsRestIsZero) {
  const std::string image = std::string("perf01\0\0", 8) + std::string(136, '1');
  Allow("p pe per perf perf0 perf01");
  // From the longest on, so that something longer was in memory before.
  for (std::size_t size = image.size() - 1; size >= 1; --size) {
    Define(image.substr(0, std::min<std::size_t>(size, 6)).c_str());
    ConnectAndWrite(image.substr(0, size));
    TakeIn();
    EXPECT_EQ(Queued(), image.substr(0, size) + std::string(image.size() - size, '\0')) << size;
  }
}

TEST_F(EventIntakeTest, OnlyTheFirstOfTwoRecordsIsTaken) {
  ConnectAndWrite(Image("perf01", "first") + Image("perf01", "second"));
  ConnectAndWrite(Image("perf01", "third"));
  EXPECT_EQ(TakeIn().out, Printed("perf01", "first") + Printed("perf01", "third"));
  EXPECT_EQ(Queued(), Image("perf01", "first") + Image("perf01", "third"));
}

TEST_F(EventIntakeTest, ClientIsClosedWithoutAnAnswer) {
  const std::size_t open = CountOpenDescriptors();
  const UniqueFd client = ConnectAndWrite(Image("perf01"));
  TakeIn();
  EXPECT_EQ(ReadToEnd(client), "");
  EXPECT_EQ(CountOpenDescriptors(), open + 1);
}

TEST_F(EventIntakeTest, EndOfDataAndFailedReadAreReported) {
  Connect();
  EXPECT_EQ(TakeIn(), (Output{"", "read: Success\n"}));
  EXPECT_EQ(OutputOf([this] { EXPECT_TRUE(intake_.HandleConnection(-1)); }),
            (Output{"", "read: Bad file descriptor\n"}));
}

TEST_F(EventIntakeTest, FailedAcceptGivesItsErrorAndTheClientWaits) {
  const std::vector<UniqueFd> silent = SetAside(1);
  const UniqueFd client = Connect();
  Write(client, Image("perf01", "late"));
  EXPECT_TRUE(HasSomethingToDo());
  {
    const NoMoreDescriptors none;
    EXPECT_EQ(intake_.TakeInClient(listener_.Get()), EMFILE);
  }
  EXPECT_EQ(TakeIn(), (Output{Printed("perf01", "late"), ""}));
}

// --- Silent clients ----------------------------------------------------------------------------

TEST_F(EventIntakeTest, SilentClientIsSetAsideAndReadWhenItWrites) {
  const UniqueFd silent = Connect();
  EXPECT_EQ(TakeIn(), (Output{"", ""}));
  EXPECT_FALSE(HasInheritableDescriptors());
  ConnectAndWrite(Image("perf01", "other"));
  EXPECT_EQ(TakeIn().out, Printed("perf01", "other"));
  Write(silent, Image("perf01", "late"));
  EXPECT_TRUE(HasSomethingToDo());
  EXPECT_EQ(TakeIn(), (Output{Printed("perf01", "late"), ""}));
  EXPECT_EQ(ReadToEnd(silent), "");  // closed
}

TEST_F(EventIntakeTest, SilentClientsAreReadLongestSilentFirstAndBeforeNewOnes) {
  const std::vector<UniqueFd> silent = SetAside(3);
  ConnectAndWrite(Image("perf01", "new"));
  Write(silent[2], Image("perf01", "2"));
  Write(silent[0], Image("perf01", "0"));
  EXPECT_EQ(TakeIn().out,
            Printed("perf01", "0") + Printed("perf01", "2") + Printed("perf01", "new"));
}

TEST_F(EventIntakeTest, SilentClientThatClosesIsReportedOnce) {
  std::vector<UniqueFd> silent = SetAside(2);
  silent[0].Reset();
  EXPECT_TRUE(HasSomethingToDo());
  EXPECT_EQ(TakeIn().err.substr(0, 6), "read: ");
  EXPECT_EQ(TakeIn(), (Output{"", ""}));
}

TEST_F(EventIntakeTest, RecordOfASilentClientIsCheckedWithTheSettingsOfItsReading) {
  const std::vector<UniqueFd> silent = SetAside(2);
  Allow("sys05");
  Write(silent[0], Image("perf01", "not allowed any more"));
  TakeIn();
  EXPECT_EQ(Queued(), "");
  Allow("perf01");
  Write(silent[1], Image("perf01", "allowed again"));
  TakeIn();
  EXPECT_EQ(Queued(), Image("perf01", "allowed again"));
}

TEST_F(EventIntakeTest, SixtyFourSilentClientsAreKept) {
  for (const UniqueFd &client : SetAside(64)) {
    Write(client, Image("perf01"));
  }
  EXPECT_EQ(TakeIn().err, "");
  EXPECT_EQ(queue_.TakeAll().size(), 64U);
}

TEST_F(EventIntakeTest, SixtyFifthSilentClientEndsTheOneThatIsSilentForLongest) {
  std::vector<UniqueFd> silent = SetAside(64);
  const std::size_t open = CountOpenDescriptors();
  silent.push_back(Connect());
  EXPECT_EQ(TakeIn().err.substr(0, 6), "read: ");
  EXPECT_EQ(CountOpenDescriptors(), open + 1);  // the new client's own
  EXPECT_EQ(send(silent[0].Get(), "x", 1, MSG_NOSIGNAL), -1);
  EXPECT_EQ(errno, EPIPE);
  Write(silent[1], Image("perf01", "1"));
  Write(silent[64], Image("perf01", "64"));
  EXPECT_EQ(TakeIn(), (Output{Printed("perf01", "1") + Printed("perf01", "64"), ""}));
}

TEST_F(EventIntakeTest, EarlierWriteOfAClientThatIsEndedIsStillRead) {
  std::vector<UniqueFd> silent = SetAside(64);
  silent.push_back(Connect());
  // After the silent clients were read for the last time.
  g_beforeAccept = [&] { Write(silent[0], Image("perf01", "in time")); };
  EXPECT_EQ(TakeIn(), (Output{Printed("perf01", "in time"), ""}));
}

// --- Waiting -----------------------------------------------------------------------------------

TEST_F(EventIntakeTest, WaitingTakesItsTimeAmongSilentClients) {
  constexpr milliseconds kTime{300};
  const std::vector<UniqueFd> silent = SetAside(2);
  EXPECT_GE(TimeOf([&] { EXPECT_TRUE(intake_.WaitForClient(listener_.Get(), kTime)); }), kTime);
}

TEST_F(EventIntakeTest, WaitingWithoutALimitEndsWithTheShutdownOfTheListener) {
  const std::vector<UniqueFd> silent = SetAside(2);
  std::thread ending([this] { EXPECT_EQ(shutdown(listener_.Get(), SHUT_RD), 0); });
  EXPECT_FALSE(intake_.WaitForClient(listener_.Get(), milliseconds{-1}));
  ending.join();
}

}  // namespace
}  // namespace ov
