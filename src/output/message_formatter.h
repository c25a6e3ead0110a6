// Turns events into lines of text by a template.
#pragma once

#include <QHash>
#include <QSet>
#include <QString>
#include <QStringList>
#include <cstdint>
#include <optional>

#include "event/event_definition.h"
#include "event/event_record.h"
#include "output/host_identity.h"

namespace ov {

/// facility * 8 + severity (RFC 3164, section 4.1.1) in decimal. Neither number is checked: the
/// sum wraps as a 32-bit signed integer.
QString FormatPriority(std::int32_t facility, std::int32_t severity);

/// The local time "MMM dd HH:mm:ss" of seconds since the epoch, the month as the system's locale
/// writes it. Empty if the conversion throws.
QString FormatDate(std::int64_t seconds);

/// The dates of one pass. It converts the time of equal seconds once: events come in bunches, and a
/// conversion costs several system calls. The next pass sees a changed time zone.
class DateMemo {
 public:
  const QString &Text(std::int64_t seconds);

 private:
  std::optional<std::int64_t> seconds_;
  QString text_;
};

/// What the lines of one pass have in common.
struct LineContext {
  std::int32_t facility;
  HostIdentity host;
  DateMemo dates;
};

/// Value by token, brackets included.
using TokenValues = QHash<QString, QString>;

/// Holds the template, cut into pieces. Until one is set, every line is empty.
class MessageFormatter {
 public:
  MessageFormatter();

  /// Every token, brackets included.
  const QStringList &tokens() const { return tokens_; }

  /// Cuts the template into tokens and the literal stretches between them. What merely resembles
  /// a token is literal.
  void SetTemplate(const QString &text);

  /// The template with every token replaced by its value; a token without one stays as it is.
  /// Values are inserted as they are and never expanded again.
  QString Render(const TokenValues &values) const;

  /// The line for one event.
  QString FormatEvent(const EventRecord &record, const EventDefinition &definition,
                      LineContext &context) const;

 private:
  // Returns the pieces of a text in which the tokens before this one do not occur.
  QStringList Cut(const QString &text, int tokenIndex) const;

  QSet<QString> knownTokens_;
  QStringList tokens_;
  QStringList pieces_;
};

}  // namespace ov
