// What the harnesses share. Each harness defines Run, which gives arbitrary input to one part of
// the product and compares the outcome with a plain second implementation of the rule.
#pragma once

#include <QByteArray>
#include <QDebug>
#include <QPair>
#include <QString>
#include <QStringList>
#include <QVector>
#include <cstdint>
#include <functional>
#include <vector>

namespace ov::fuzz {

/// The parts of an input between lines of "--", at least one.
using Sections = std::vector<QByteArray>;

void Run(const Sections &sections);

/// The words of a section that says what to do with the others. What is missing reads as 0.
class Options {
 public:
  explicit Options(QByteArray text) : text_(std::move(text)) {}

  /// Takes one character: whether it is a "1".
  bool Flag();
  /// Takes the next decimal number, of which 32 bits count.
  std::int32_t Number();

 private:
  QByteArray text_;
};

/// That many bytes, so that what follows lies across the end of what Qt reads at once (16 KiB).
/// None for a number that does not lead there.
QByteArray Padding(std::int32_t number);

/// The text that UTF-8 bytes hold, zero bytes included.
QString Text(const QByteArray &bytes);

/// The lines of a text file, in which carriage returns do not count.
QStringList FileLines(QByteArray file);

/// Up to the first zero byte.
QByteArray UpToNul(const QByteArray &bytes);

template <typename Value>
QString Shown(const Value &value) {
  QString text;
  QDebug(&text).nospace() << value;
  return text;
}

/// Prints the difference and aborts, which libFuzzer takes for a find.
[[noreturn]] void Disagree(const char *what, const QString &got, const QString &wanted);

template <typename Value>
void ExpectSame(const char *what, const Value &got, const Value &wanted) {
  if (!(got == wanted)) {
    Disagree(what, Shown(got), Shown(wanted));
  }
}

struct Printed {
  QByteArray out;
  QByteArray err;
};

/// What the product printed since the last call.
Printed TakePrinted();

/// Fails unless this and nothing else was printed since the last look.
void ExpectPrinted(const QByteArray &out, const QByteArray &err);

/// Replaces the file, or removes it if it does not exist.
void PlaceFile(const char *path, bool exists, const QByteArray &contents);

/// Identifiers and values of events, oldest first.
using Events = QVector<QPair<QByteArray, QByteArray>>;

/// Empties the process-wide queue.
Events TakeEvents();

/// An event as a record holds it: at most 127 bytes of the values, up to a zero byte.
Events::value_type EventOf(const char *id, const QString &values);

/// What a script, or pgrep, prints for a command. No process is started.
using Answer = std::function<QByteArray(const QStringList &command)>;

/// From here on every script answers like this.
void SetAnswer(Answer answer);

/// The text that RunScript makes of an output.
QString OutputText(const QByteArray &output);

}  // namespace ov::fuzz
