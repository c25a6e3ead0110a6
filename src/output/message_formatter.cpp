#include "output/message_formatter.h"

#include <QDateTime>
#include <QVarLengthArray>
#include <string_view>
#include <utility>

#include "base/out_of_memory.h"

namespace ov {
namespace {

constexpr int kUsualLineLength = 512;  // UTF-16 units, rendered without a detour over the heap

QString FromUtf8(std::string_view text) {
  return QString::fromUtf8(text.data(), static_cast<int>(text.size()));
}

QString LocalTimeText(qint64 milliseconds) {
  return QDateTime::fromMSecsSinceEpoch(milliseconds).toString(QStringLiteral("MMM dd HH:mm:ss"));
}

}  // namespace

QString FormatPriority(std::int32_t facility, std::int32_t severity) {
  // Unsigned, where running over is defined and gives the bits of the signed sum that wraps.
  const std::uint32_t sum =
      static_cast<std::uint32_t>(facility) * 8U + static_cast<std::uint32_t>(severity);
  return QString::number(static_cast<qint64>(static_cast<std::int32_t>(sum)));
}

QString FormatDate(std::int64_t seconds) {
  // Unsigned: a client may send any 64 bits, and those that are no date must not run over.
  const std::uint64_t milliseconds = static_cast<std::uint64_t>(seconds) * 1000U;
  // What Qt makes at its first conversion would stay half made, or locked, if that threw.
  static const QString firstConversion = LocalTimeText(0);
  QString text;
  try {
    const OutOfMemoryThrows caughtBelow;
    text = LocalTimeText(static_cast<qint64>(milliseconds));
  } catch (...) {
    // A line without its date is worth more than none.
  }
  return text;
}

const QString &DateMemo::Text(std::int64_t seconds) {
  if (!known_ || seconds != seconds_) {
    text_ = FormatDate(seconds);
    seconds_ = seconds;
    known_ = true;
  }
  return text_;
}

MessageFormatter::MessageFormatter()
    : tokens_(QStringLiteral("[PRI],[DATE],[ID],[DESC],[VAL],[SEV],[NAME],[IP]")
                  .split(QLatin1Char(','))) {
  for (const QString &token : tokens_) {
    knownTokens_.insert(token);
  }
}

void MessageFormatter::SetTemplate(const QString &text) {
  QStringList pieces;
  Cut(text, 0, pieces);
  const std::lock_guard<std::mutex> lock(piecesMutex_);
  pieces_ = std::move(pieces);
}

QStringList MessageFormatter::Pieces() const {
  const std::lock_guard<std::mutex> lock(piecesMutex_);
  return pieces_;
}

void MessageFormatter::Cut(const QString &text, int tokenIndex, QStringList &pieces) const {
  if (tokenIndex == tokens_.size()) {
    pieces.append(text);
    return;
  }
  const QString &token = tokens_[tokenIndex];
  int start = 0;
  for (int found = text.indexOf(token); found >= 0; found = text.indexOf(token, start)) {
    Cut(text.mid(start, found - start), tokenIndex + 1, pieces);
    pieces.append(token);
    start = found + token.size();
  }
  Cut(text.mid(start), tokenIndex + 1, pieces);
}

QString MessageFormatter::Render(const TokenValues &values) const {
  QVarLengthArray<QChar, kUsualLineLength> line;
  const auto append = [&line](const QString &text) { line.append(text.constData(), text.size()); };
  const QStringList pieces = Pieces();
  for (const QString &piece : pieces) {
    if (!knownTokens_.contains(piece)) {
      append(piece);
      continue;
    }
    const auto value = values.constFind(piece);
    append(value == values.cend() ? piece : *value);
  }
  return QString(line.constData(), line.size());
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
  values.insert(QStringLiteral("[NAME]"), context.hostName);
  values.insert(QStringLiteral("[IP]"), context.hostAddress);
  return Render(values);
}

}  // namespace ov
