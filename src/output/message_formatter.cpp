#include "output/message_formatter.h"

#include <QDateTime>
#include <string_view>

namespace ov {
namespace {

QString FromUtf8(std::string_view text) {
  return QString::fromUtf8(text.data(), static_cast<int>(text.size()));
}

}  // namespace

QString FormatPriority(std::int32_t facility, std::int32_t severity) {
  // The sum of unsigned numbers may overflow: it wraps.
  const std::uint32_t sum =
      static_cast<std::uint32_t>(facility) * 8U + static_cast<std::uint32_t>(severity);
  return QString::number(static_cast<qint64>(static_cast<std::int32_t>(sum)));
}

QString FormatDate(std::int64_t seconds) {
  // Unsigned: a client may send any 64 bits, and the product may overflow.
  const std::uint64_t milliseconds = static_cast<std::uint64_t>(seconds) * 1000U;
  QString text;
  try {
    text = QDateTime::fromMSecsSinceEpoch(static_cast<qint64>(milliseconds))
               .toString(QStringLiteral("MMM dd HH:mm:ss"));
  } catch (...) {
    // The line is sent without its date.
  }
  return text;
}

const QString &DateMemo::Text(std::int64_t seconds) {
  if (seconds_ != seconds) {
    text_ = FormatDate(seconds);
    seconds_ = seconds;
  }
  return text_;
}

MessageFormatter::MessageFormatter()
    : tokens_(QStringLiteral("[PRI],[DATE],[ID],[DESC],[VAL],[SEV],[NAME],[IP]")
                  .split(QLatin1Char(','))) {
  for (const QString &token : qAsConst(tokens_)) {
    knownTokens_.insert(token);
  }
}

void MessageFormatter::SetTemplate(const QString &text) { pieces_ = Cut(text, 0); }

QStringList MessageFormatter::Cut(const QString &text, int tokenIndex) const {
  if (tokenIndex == tokens_.size()) {
    return {text};
  }
  const QString &token = tokens_[tokenIndex];
  QStringList pieces;
  for (const QString &stretch : text.split(token)) {
    if (!pieces.isEmpty()) {
      pieces.append(token);
    }
    pieces.append(Cut(stretch, tokenIndex + 1));
  }
  return pieces;
}

QString MessageFormatter::Render(const TokenValues &values) const {
  QString line;
  for (const QString &piece : pieces_) {
    line += knownTokens_.contains(piece) ? values.value(piece, piece) : piece;
  }
  return line;
}

QString MessageFormatter::FormatEvent(const EventRecord &record, const EventDefinition &definition,
                                      LineContext &context) const {
  TokenValues values;
  values.reserve(tokens_.size());
  values.insert(QStringLiteral("[PRI]"), FormatPriority(context.facility, definition.severity));
  values.insert(QStringLiteral("[DATE]"), context.dates.Text(record.time));
  values.insert(QStringLiteral("[SEV]"), definition.severityName);
  values.insert(QStringLiteral("[ID]"), FromUtf8(EventIdText(record)));
  values.insert(QStringLiteral("[VAL]"), FromUtf8(EventValuesText(record)));
  values.insert(QStringLiteral("[DESC]"), definition.description);
  values.insert(QStringLiteral("[NAME]"), context.host.name);
  values.insert(QStringLiteral("[IP]"), context.host.address);
  return Render(values);
}

}  // namespace ov
