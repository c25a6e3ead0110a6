#include "support.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <utility>

#include "base/standard_streams.h"
#include "event/event_queue.h"
#include "monitors/script_runner.h"

namespace ov {
namespace fuzz {
namespace {

Answer currentAnswer;

// Never destroyed: something may print when the process ends.
Printed &Caught() {
  static auto *const caught = new Printed;
  return *caught;
}

FILE *StreamInto(QByteArray &text) {
  cookie_io_functions_t functions{};
  functions.write = [](void *target, const char *bytes, std::size_t size) {
    static_cast<QByteArray *>(target)->append(bytes, static_cast<int>(size));
    return static_cast<ssize_t>(size);
  };
  return fopencookie(&text, "w", functions);
}

// Replaces the two streams; the descriptors below them are libFuzzer's.
bool CatchPrinted() {
  SetUpStandardStreams();
  stdout = StreamInto(Caught().out);
  stderr = StreamInto(Caught().err);
  return true;
}

Sections SectionsOf(QByteArray input) {
  const QByteArray separator = "\n--\n";
  Sections sections;
  for (int end = input.indexOf(separator); end >= 0; end = input.indexOf(separator)) {
    sections.push_back(input.left(end));
    input.remove(0, end + separator.size());
  }
  sections.push_back(input);
  return sections;
}

}  // namespace

bool Options::Flag() {
  const bool isSet = text_.startsWith('1');
  text_.remove(0, 1);
  return isSet;
}

std::int32_t Options::Number() {
  char *end = nullptr;
  const long long number = std::strtoll(text_.constData(), &end, 10);
  text_.remove(0, static_cast<int>(end - text_.constData()));
  return static_cast<std::int32_t>(number);
}

QByteArray Padding(std::int32_t number) {
  constexpr std::int32_t kBuffer = 16384;  // bytes
  constexpr std::int32_t kBefore = 64;
  return number < kBuffer - kBefore || number > kBuffer ? QByteArray() : QByteArray(number, 'x');
}

QString Text(const QByteArray &bytes) { return QString::fromUtf8(bytes.constData(), bytes.size()); }

QStringList FileLines(QByteArray file) {
  file.replace('\r', "");
  QStringList lines = Text(file).split(QLatin1Char('\n'));
  if (lines.constLast().isEmpty()) {
    lines.removeLast();
  }
  return lines;
}

QByteArray UpToNul(const QByteArray &bytes) { return QByteArray(bytes.constData()); }

void Disagree(const char *what, const QString &got, const QString &wanted) {
  dprintf(STDERR_FILENO, "%s differs\n  got    %s\n  wanted %s\n", what, got.toUtf8().constData(),
          wanted.toUtf8().constData());
  std::abort();
}

Printed TakePrinted() {
  std::fflush(stdout);
  std::fflush(stderr);
  return std::exchange(Caught(), {});
}

void ExpectPrinted(const QByteArray &out, const QByteArray &err) {
  const Printed printed = TakePrinted();
  ExpectSame("standard output", printed.out, out);
  ExpectSame("standard error", printed.err, err);
}

// Qt's reader of settings takes a file of the same time and size for read already.
static void SetNextTime(const char *path) {
  static std::int64_t second = 0;
  ++second;
  const std::array<timespec, 2> times{timespec{second, 0}, timespec{second, 0}};
  ExpectSame("setting of a file's time", utimensat(AT_FDCWD, path, times.data(), 0), 0);
}

void PlaceFile(const char *path, bool exists, const QByteArray &contents) {
  unlink(path);
  if (exists) {
    std::ofstream file(path, std::ios::binary);
    ExpectSame("file written", bool(file.write(contents.constData(), contents.size())), true);
    file.close();
    SetNextTime(path);
  }
}

Events TakeEvents() {
  Events events;
  for (const EventRecord &record : g_eventQueue.TakeAll()) {
    events.append({QByteArray(record.id.data()), QByteArray(record.values.data())});
  }
  return events;
}

Events::value_type EventOf(const char *id, const QString &values) {
  return {id, UpToNul(values.toUtf8()).left(127)};
}

void SetAnswer(Answer answer) { currentAnswer = std::move(answer); }

QString OutputText(const QByteArray &output) { return Text(UpToNul(output)); }

}  // namespace fuzz

// These two take the place of the product's own.
QString RunScript(const QString &program, const QStringList &arguments) {
  return fuzz::OutputText(fuzz::currentAnswer(QStringList(program) + arguments));
}

bool IsProcessRunning(const QString &name) {
  return !RunScript(QStringLiteral("pgrep"), {name}).isEmpty();
}

}  // namespace ov

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
  [[maybe_unused]] static const bool isCaught = ov::fuzz::CatchPrinted();
  ov::fuzz::Run(ov::fuzz::SectionsOf(
      QByteArray(reinterpret_cast<const char *>(data), static_cast<int>(size))));
  return 0;
}
