// Turns events into lines of text by a template. The run cycle sets the template; everything
// else is called on the processing thread.
#pragma once

#include <QHash>
#include <QSet>
#include <QString>
#include <QStringList>
#include <cstdint>
#include <mutex>

#include "event/event_definition.h"
#include "event/event_record.h"

namespace ov {

/// facility * 8 + severity (RFC 3164, section 4.1.1) in decimal. Neither number is checked: the
/// sum wraps as a 32-bit signed integer.
QString FormatPriority(std::int32_t facility, std::int32_t severity);

/// The local time "MMM dd HH:mm:ss" of seconds since the epoch, the month as the system's locale
/// writes it. Empty if the conversion throws.
QString FormatDate(std::int64_t seconds);

/// Remembers the last date text, since events come in bunches and a conversion to local time may
/// cost file look-ups. Use one per pass, so that a changed time zone shows in the next pass.
class DateMemo {
 public:
  const QString &Text(std::int64_t seconds);

 private:
  bool known_ = false;
  std::int64_t seconds_ = 0;
  QString text_;
};

/// What the lines of one pass have in common.
struct LineContext {
  std::int32_t facility;
  QString hostName;
  QString hostAddress;
  DateMemo dates;
};

/// Value by token, brackets included.
using TokenValues = QHash<QString, QString>;

/// Holds the template, cut into pieces. Until one is set, every line is empty.
class MessageFormatter {
 public:
  MessageFormatter();

  /// Cuts the template into tokens and the literal stretches between them. What merely resembles
  /// a token is literal.
  void SetTemplate(const QString &text);

  /// The template with every token replaced by its value; a token without one stays as it is.
  /// Values are inserted as they are and never expanded again.
  QString Render(const TokenValues &values) const;

  /// The line for one event.
  QString FormatEvent(const EventRecord &record, const EventDefinition &definition,
                      LineContext &context) const;

  QStringList Pieces() const;

 private:
  // Appends the pieces of a text in which the tokens before this one do not occur.
  void Cut(const QString &text, int tokenIndex, QStringList &pieces) const;

  QSet<QString> knownTokens_;
  QStringList tokens_;
  // A processing thread that outlived its cycle may render while the next cycle sets its template.
  mutable std::mutex piecesMutex_;
  QStringList pieces_;
};

extern MessageFormatter g_messageFormatter;

}  // namespace ov
