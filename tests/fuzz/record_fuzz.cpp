// From the bytes that a client sends to the line that goes out. Sections: facility and severity (as
// in "16 4"), then the bytes of one client after the other; an empty section for one that closes.
#include <sys/socket.h>

#include <array>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <memory>

#include "base/unique_fd.h"
#include "config/settings.h"
#include "output/message_formatter.h"
#include "service/event_intake.h"
#include "service/event_queue.h"
#include "support/expect.h"
#include "support/files.h"
#include "support/printed.h"
#include "support/sections.h"
#include "support/text.h"

namespace ov::fuzz {
namespace {

constexpr std::size_t kRecordSize = 144;
constexpr std::size_t kValuesOffset = 8;
constexpr std::size_t kTimeOffset = 136;

// Identifiers in Latin-1. The longer ones fill their field and run on into the values.
const std::vector<std::string> kForwarded = {"perf01", "caf\xE9", "", "eightchr", "eightchr95,80"};
const std::vector<std::string> kNotAllowed = {"sys05", "sys05long"};
constexpr char kAllowed[] = "allowed=\"perf01 caf\\xe9  eightchr eightchr95,80 net02\"\n";

// Values that would be tokens, were they looked at again.
constexpr char kDescription[] = "[VAL] of [NAME]";
constexpr char kSeverityName[] = "[PRI]";
constexpr char kName[] = "[IP]";
constexpr char kAddress[] = "[DATE]";

bool Contains(const std::vector<std::string> &ids, std::string_view id) {
  for (const std::string &known : ids) {
    if (known == id) {
      return true;
    }
  }
  return false;
}

// What all inputs share: a service that knows some events and allows some others.
struct Service {
  Settings settings;
  EventCatalogue catalogue;
  MessageFormatter formatter;
  EventDefinition definition;
  EventQueue queue;

  Service() {
    setenv("TZ", "UTC", 1);
    setenv("LC_ALL", "C", 1);
    WriteFile(kSettingsPath, kAllowed);
    settings.parseSettings();
    TakePrinted();
    formatter.SetTemplate(settings.formatString());
    for (const std::vector<std::string> &ids : {kForwarded, kNotAllowed}) {
      for (const std::string &id : ids) {
        catalogue.insert(QString::fromLatin1(id.c_str()), {});
      }
    }
    definition.description = QString::fromLatin1(kDescription);
    definition.severityName = QString::fromLatin1(kSeverityName);
  }
};

Service &TheService() {
  static auto *const service = new Service;
  return *service;
}

// A record as the service must see it: bytes that did not come are zeros, those past the last of
// the record do not count.
class Record {
 public:
  explicit Record(std::string_view sent) : bytes_(sent.substr(0, kRecordSize)) {
    bytes_.resize(kRecordSize);
  }

  [[nodiscard]] const std::string &Bytes() const { return bytes_; }
  [[nodiscard]] std::string_view Id() const { return UpToNul(bytes_); }
  [[nodiscard]] std::string_view Values() const {
    return UpToNul(std::string_view(bytes_).substr(kValuesOffset));
  }
  [[nodiscard]] std::int64_t Time() const {
    std::uint64_t time = 0;
    for (std::size_t i = kRecordSize; i > kTimeOffset; --i) {
      time = time << 8U | static_cast<unsigned char>(bytes_[i - 1]);
    }
    return static_cast<std::int64_t>(time);
  }

 private:
  std::string bytes_;
};

std::string PriorityText(std::int32_t facility, std::int32_t severity) {
  constexpr std::int64_t kModulus = std::int64_t{1} << 32;
  std::int64_t sum = (std::int64_t{facility} * 8 + severity) % kModulus;
  if (sum >= kModulus / 2) {
    sum -= kModulus;
  } else if (sum < -kModulus / 2) {
    sum += kModulus;
  }
  return std::to_string(sum);
}

// A time counts by its milliseconds, of which 64 bits are kept: those farther off wrap around.
std::int64_t SecondsThatCount(std::int64_t seconds) {
  const auto milliseconds = static_cast<std::int64_t>(static_cast<std::uint64_t>(seconds) * 1000U);
  return milliseconds / 1000 - (milliseconds % 1000 < 0 ? 1 : 0);
}

// In UTC, in the Gregorian calendar for ever.
std::string DateText(std::int64_t time) {
  const std::int64_t seconds = SecondsThatCount(time);
  const tm *const date = gmtime(&seconds);
  std::array<char, 32> text{};
  std::strftime(text.data(), text.size(), "%b %d %H:%M:%S", date);
  return text.data();
}

std::string PrintedFor(const Record &record) {
  const std::string id(record.Id());
  std::string out = "> Received event\nEvent [" + id + "] (" + std::string(record.Values()) +
                    ") at " + std::to_string(static_cast<std::uint64_t>(record.Time())) + "\n";
  if (!Contains(kForwarded, id) && !Contains(kNotAllowed, id)) {
    out += "Event " + id + " is not defined\n";
  }
  return out;
}

// The template by default, filled in.
std::string LineFor(const Record &record, const std::string &priority) {
  return "<" + priority + "> " + DateText(record.Time()) + " " + kName + "(" + kAddress +
         "): " + Decoded(record.Id()) + " " + kDescription + " - " + Decoded(record.Values()) +
         " (" + kSeverityName + ")";
}

// A connection from a client. It outlives its client, since making one takes longer than the rest.
class Connection {
 public:
  Connection() {
    std::array<int, 2> ends{-1, -1};
    ExpectSame("socketpair", socketpair(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK, 0, ends.data()), 0);
    client_.Reset(ends[0]);
    service_.Reset(ends[1]);
  }

  [[nodiscard]] int Get() const { return service_.Get(); }

  void Send(std::string_view bytes) const {
    ExpectSame("size sent", write(client_.Get(), bytes.data(), bytes.size()),
               static_cast<ssize_t>(bytes.size()));
  }

  void CloseClient() { client_.Reset(); }

  // Throws away what was not read.
  void Drain() const {
    std::array<char, 1024> bytes;
    while (read(service_.Get(), bytes.data(), bytes.size()) > 0) {
    }
  }

 private:
  UniqueFd client_;
  UniqueFd service_;
};

Connection ClosedConnection() {
  Connection connection;
  connection.CloseClient();
  return connection;
}

// Hands the bytes to the intake, and returns what it queued.
EventList TakeIn(Service &service, std::string_view sent) {
  static const Connection open;
  static const Connection closed = ClosedConnection();
  const Connection &connection = sent.empty() ? closed : open;
  if (!sent.empty()) {
    connection.Send(sent);
  }
  errno = 0;
  HandleConnection(connection.Get(), service.catalogue, service.settings, service.queue);
  if (sent.size() > kRecordSize) {
    connection.Drain();
  }
  return service.queue.TakeAll();
}

void CheckLine(const Service &service, const EventRecord &received, const Record &record,
               LineContext &context) {
  // Alone on the heap, where the address sanitizer sees a look behind its end.
  const auto copy = std::make_unique<EventRecord>(received);
  const std::string priority = PriorityText(context.facility, service.definition.severity);
  ExpectSame("line", Utf8(service.formatter.FormatEvent(*copy, service.definition, context)),
             LineFor(record, priority));
}

void CheckClient(Service &service, std::string_view sent, LineContext &context) {
  const EventList queued = TakeIn(service, sent);
  if (sent.empty()) {
    ExpectSame("queued", queued.empty(), true);
    ExpectPrinted("", "read: Success\n");
    return;
  }
  const Record record(sent);
  ExpectPrinted(PrintedFor(record), "");
  ExpectSame("queued", !queued.empty(), Contains(kForwarded, record.Id()));
  EventRecord received;
  std::memcpy(static_cast<void *>(&received), record.Bytes().data(), kRecordSize);
  if (!queued.empty()) {
    const auto *const bytes = reinterpret_cast<const char *>(&queued.front());
    ExpectSame("record", std::string(bytes, kRecordSize), record.Bytes());
    received = queued.front();
  }
  CheckLine(service, received, record, context);
}

void Run(const std::vector<std::string_view> &sections) {
  Service &service = TheService();
  Options options(sections[0]);
  LineContext context{
      options.Number(), QString::fromLatin1(kName), QString::fromLatin1(kAddress), {}};
  service.definition.severity = options.Number();
  for (std::size_t i = 1; i < sections.size(); ++i) {
    CheckClient(service, sections[i], context);
  }
}

}  // namespace
}  // namespace ov::fuzz

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
  ov::fuzz::CatchPrinted();
  ov::fuzz::Run(ov::fuzz::SectionsOf(data, size));
  return 0;
}
