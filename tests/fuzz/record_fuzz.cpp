// From the bytes that a client sends to the line that goes out. Sections: facility and severity (as
// in "16 4"), then the bytes of one client after the other; an empty section for one that closes.
#include <sys/socket.h>

#include <QHash>
#include <array>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <memory>

#include "base/unique_fd.h"
#include "output/host_identity.h"
#include "output/message_formatter.h"
#include "service/event_intake.h"
#include "support.h"

namespace ov::fuzz {
namespace {

// Identifiers in Latin-1. The longer ones fill their field and run on into the values.
const QList<QByteArray> kForwarded{"perf01", "caf\xE9", "", "eightchr", "eightchr95,80"};
const QList<QByteArray> kNotAllowed{"sys05", "sys05long"};
constexpr char kAllowed[] = "allowed=\"perf01 caf\\xe9  eightchr eightchr95,80 net02\"\n";

// What all inputs share: a service that knows some events and allows some others. Its texts would
// be tokens, were they looked at again.
struct Service {
  Settings settings;
  EventCatalogue catalogue;
  EventQueue queue;
  EventIntake intake{catalogue, settings, queue};
  MessageFormatter formatter;
  EventDefinition definition;
  HostIdentity host{QStringLiteral("[DATE]"), QStringLiteral("[IP]")};

  Service() {
    setenv("TZ", "UTC", 1);
    setenv("LC_ALL", "C", 1);
    PlaceFile(kSettingsPath, true, kAllowed);
    settings.parseSettings();
    TakePrinted();
    formatter.SetTemplate(settings.formatString());
    EventDefinitions definitions;
    for (const QByteArray &id : kForwarded + kNotAllowed) {
      definitions.insert(QString::fromLatin1(id), {});
    }
    catalogue.Replace(definitions);
    definition.description = QStringLiteral("[VAL] of [NAME]");
    definition.severityName = QStringLiteral("[PRI]");
  }
};

std::int64_t TimeIn(const QByteArray &record) {
  std::int64_t time = 0;
  std::memcpy(&time, record.constData() + 136, sizeof(time));
  return time;
}

// A time counts by its milliseconds, of which 64 bits are kept: those farther off wrap around.
QByteArray DateText(std::int64_t time) {
  const auto milliseconds = static_cast<std::int64_t>(static_cast<std::uint64_t>(time) * 1000U);
  const std::int64_t seconds = milliseconds / 1000 - (milliseconds % 1000 < 0 ? 1 : 0);
  std::array<char, 32> text{};
  std::strftime(text.data(), text.size(), "%b %d %H:%M:%S", gmtime(&seconds));
  return text.data();
}

QByteArray PriorityText(std::int32_t facility, std::int32_t severity) {
  const std::int64_t sum = std::int64_t{facility} * 8 + severity;
  return QByteArray::number(static_cast<std::int32_t>(sum & 0xFFFFFFFF));
}

void CheckClient(Service &service, const QByteArray &sent, std::int32_t facility) {
  std::array<int, 2> ends{-1, -1};
  ExpectSame("socketpair", socketpair(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK, 0, ends.data()), 0);
  UniqueFd client(ends[0]);
  const UniqueFd connection(ends[1]);
  ExpectSame("silent client", service.intake.HandleConnection(connection.Get()), false);
  const auto written = write(client.Get(), sent.constData(), static_cast<std::size_t>(sent.size()));
  ExpectSame("size sent", static_cast<int>(written), sent.size());
  client.Reset();
  errno = 0;
  ExpectSame("client read", service.intake.HandleConnection(connection.Get()), true);
  const EventList queued = service.queue.TakeAll();
  if (sent.isEmpty()) {
    ExpectSame("queued", queued.empty(), true);
    ExpectPrinted("", "read: Success\n");
    return;
  }
  // Bytes that did not come are zeros.
  const QByteArray record = (sent + QByteArray(kEventRecordSize, '\0')).left(kEventRecordSize);
  const QByteArray id = UpToNul(record);
  const QByteArray values = UpToNul(record.mid(8));
  const bool isDefined = (kForwarded + kNotAllowed).contains(id);
  ExpectPrinted("> Received event\nEvent [" + id + "] (" + values + ") at " +
                    QByteArray::number(static_cast<quint64>(TimeIn(record))) + "\n" +
                    (isDefined ? "" : "Event " + id + " is not defined\n"),
                "");
  ExpectSame("queued", !queued.empty(), kForwarded.contains(id));
  // Alone on the heap, where the address sanitizer sees a look behind its end.
  const auto copy = std::make_unique<EventRecord>();
  std::memcpy(static_cast<void *>(copy.get()), record.constData(), kEventRecordSize);
  if (!queued.empty()) {
    ExpectSame("record", std::memcmp(&queued.front(), copy.get(), kEventRecordSize), 0);
  }
  LineContext context{facility, service.host, {}};
  const QString line = service.formatter.FormatEvent(*copy, service.definition, context);
  ExpectSame("line", line,
             Text("<" + PriorityText(facility, service.definition.severity) + "> " +
                  DateText(TimeIn(record)) + " [IP]([DATE]): ") +
                 Text(id) + QStringLiteral(" [VAL] of [NAME] - ") + Text(values) +
                 QStringLiteral(" ([PRI])"));
}

}  // namespace

void Run(const Sections &sections) {
  static auto *const service = new Service;
  Options options(sections[0]);
  const std::int32_t facility = options.Number();
  service->definition.severity = options.Number();
  for (std::size_t i = 1; i < sections.size(); ++i) {
    CheckClient(*service, sections[i], facility);
  }
}

}  // namespace ov::fuzz
