// What rsyslog and syslog-ng store of an event, by the tables of docs/COLLECTORS.md, which a test
// makes with both.
#pragma once

#include <QByteArray>
#include <QString>
#include <QStringList>
#include <optional>

namespace ov {

/// The value of `formatString`, without the quotes of the file, whose line both collectors take
/// apart into fields (RFC 5424 with structured data).
extern const char kRecommendedTemplate[];

/// An event as it goes out.
struct SentEvent {
  QString formatString;
  bool isTcp;
  QByteArray values;
  QByteArray description;
  std::int32_t facility;
  std::int32_t severity;
  QString hostName;
  bool hasEnglishMonths;
};

/// Each difference as "<case>, such as <example>: <what becomes of the example>"; none: every field
/// is stored as sent.
struct StoredAnswer {
  QString table;  ///< the heading of the table
  QStringList rsyslog;
  QStringList syslogNg;
};

/// Nothing for a template that has no table.
std::optional<StoredAnswer> StoredAnswerFor(const SentEvent &event);

}  // namespace ov
