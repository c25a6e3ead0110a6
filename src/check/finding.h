// What ov-event-check finds: one cause at one place, said in one sentence.
#pragma once

#include <QByteArray>
#include <QList>
#include <QString>
#include <QStringList>
#include <array>

namespace ov {

/// Error: an event is lost or changed, or the service ends. Warning: probably not meant. Note:
/// worth knowing.
enum class Level { kError, kWarning, kNote };

struct Cause {
  const char *name;
  Level level;
};

/// Every cause; docs/ANSWERS.md has a page for each.
extern const std::array<Cause, 59> kCauses;

/// The cause of this name, or null.
const Cause *FindCause(const QString &name);

/// Where a finding is. Without a file it is about this machine; without a line it is about what a
/// file lacks as a whole.
struct Place {
  QString file;
  int line = 0;       ///< from 1
  int column = 0;     ///< in bytes, from 1
  QByteArray source;  ///< the line itself
};

struct Finding {
  Place place;
  const Cause *cause;
  Level level;  ///< that of the cause, or kNote for what could not be seen
  QString sentence;
  QStringList events;  ///< the identifiers that it touches; none: every event
};

/// Collects findings.
class Findings {
 public:
  /// `cause` is a name in kCauses.
  void Add(const char *cause, const Place &place, const QString &sentence,
           const QStringList &events = {});

  /// Says as a note why a cause about this machine could not be looked into.
  void AddUnseen(const char *cause, const QString &sentence);

  /// The files in their order, each in the order of its lines and then what it lacks as a whole,
  /// then this machine.
  QList<Finding> Sorted() const;

  bool Has(const char *cause) const;
  int Count(Level level) const;
  /// Whether there is an error or a warning.
  bool HasComplaint() const { return Count(Level::kError) + Count(Level::kWarning) > 0; }

  /// Only those that touch the event.
  Findings About(const QString &event) const;

 private:
  QList<Finding> findings_;
};

/// The candidate that was probably meant by a word: the same but for case, one that begins like it,
/// or one that differs in at most two letters and less than half of them. Empty if there is none.
QString ClosestTo(const QString &word, const QStringList &candidates);

/// A text with escapes for control characters: it can neither end a line nor steer a terminal.
QString Printable(const QString &text);

/// A text in double quotes, with escapes for control characters, double quotes and backslashes.
QString Quoted(const QString &text);

}  // namespace ov
