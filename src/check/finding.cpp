#include "check/finding.h"

#include <algorithm>
#include <cstdlib>
#include <limits>
#include <vector>

namespace ov {

namespace {

// The letters to insert, to delete, to replace or to swap with the next one (optimal string
// alignment distance).
int Distance(const QString &from, const QString &to) {
  std::vector<std::vector<int>> cost(static_cast<std::size_t>(from.size()) + 1,
                                     std::vector<int>(static_cast<std::size_t>(to.size()) + 1));
  for (std::size_t i = 0; i < cost.size(); ++i) {
    for (std::size_t j = 0; j < cost[i].size(); ++j) {
      if (i == 0 || j == 0) {
        cost[i][j] = static_cast<int>(i + j);
        continue;
      }
      const auto is = [&](std::size_t back, std::size_t forth) {
        return from[static_cast<int>(i - back)] == to[static_cast<int>(j - forth)];
      };
      cost[i][j] = std::min(
          {cost[i - 1][j] + 1, cost[i][j - 1] + 1, cost[i - 1][j - 1] + (is(1, 1) ? 0 : 1)});
      if (i > 1 && j > 1 && is(1, 2) && is(2, 1)) {
        cost[i][j] = std::min(cost[i][j], cost[i - 2][j - 2] + 1);
      }
    }
  }
  return cost.back().back();
}

}  // namespace

const std::array<Cause, 59> kCauses = {{
    // The settings.
    {"no-settings", Level::kError},
    {"unreadable-settings", Level::kError},
    {"list-value", Level::kError},
    {"cut-at-semicolon", Level::kError},
    {"changed-by-escape", Level::kError},
    {"special-value", Level::kError},
    {"not-latin1", Level::kError},
    {"byte-order-mark", Level::kError},
    {"key-in-section", Level::kError},
    {"unknown-key", Level::kWarning},
    {"hash-comment", Level::kWarning},
    {"repeated-key", Level::kWarning},
    {"not-a-number", Level::kError},
    {"out-of-range", Level::kError},
    {"unknown-protocol", Level::kError},
    {"no-host", Level::kError},
    {"host-not-ipv4", Level::kError},
    {"nothing-allowed", Level::kError},
    {"allowed-separator", Level::kError},
    {"allowed-not-defined", Level::kError},
    {"allowed-case", Level::kError},
    {"monitor-without-event", Level::kWarning},
    {"event-without-monitor", Level::kNote},
    // The template.
    {"unknown-token", Level::kWarning},
    {"no-priority", Level::kWarning},
    {"no-header", Level::kWarning},
    {"starts-with-digit", Level::kError},
    {"line-break", Level::kError},
    {"line-too-long", Level::kWarning},
    {"no-event-id", Level::kWarning},
    // The definitions.
    {"no-definitions", Level::kError},
    {"unreadable-definitions", Level::kError},
    {"fallback-unused", Level::kNote},
    {"too-few-columns", Level::kError},
    {"too-many-columns", Level::kWarning},
    {"unknown-severity", Level::kError},
    {"bad-id", Level::kError},
    {"repeated-id", Level::kWarning},
    {"indented-comment", Level::kError},
    {"header-row", Level::kWarning},
    // This machine.
    {"settings-not-readable-by-service", Level::kError},
    {"not-running", Level::kError},
    {"stale-socket", Level::kError},
    {"socket-denied", Level::kError},
    {"old-definitions", Level::kWarning},
    {"no-address", Level::kError},
    {"loopback-only", Level::kWarning},
    {"unresolved-host", Level::kError},
    {"collector-refuses", Level::kError},
    {"no-script", Level::kError},
    {"script-not-executable", Level::kError},
    {"script-slow", Level::kError},
    {"script-unusable", Level::kError},
    {"reading-too-long", Level::kError},
    {"no-pgrep", Level::kError},
    {"status-file", Level::kNote},
    {"month-names", Level::kWarning},
    {"time-zone", Level::kNote},
    {"few-descriptors", Level::kWarning},
}};

const Cause *FindCause(const QString &name) {
  const auto *const found =
      std::find_if(kCauses.begin(), kCauses.end(),
                   [&name](const Cause &cause) { return name == QLatin1String(cause.name); });
  return found == kCauses.end() ? nullptr : found;
}

void Findings::Add(const char *cause, const Place &place, const QString &sentence,
                   const QStringList &events) {
  const Cause *const known = FindCause(QLatin1String(cause));
  if (known == nullptr) {
    std::abort();
  }
  QStringList touched = events;
  touched.removeDuplicates();
  findings_.append({place, known, known->level, sentence, touched});
}

void Findings::AddUnseen(const char *cause, const QString &sentence) {
  Add(cause, {}, sentence);
  findings_.last().level = Level::kNote;
}

QList<Finding> Findings::Sorted() const {
  QStringList files;
  for (const Finding &finding : findings_) {
    if (!finding.place.file.isEmpty() && !files.contains(finding.place.file)) {
      files.append(finding.place.file);
    }
  }
  files.append(QString());
  QList<Finding> sorted = findings_;
  std::stable_sort(sorted.begin(), sorted.end(),
                   [&files](const Finding &one, const Finding &other) {
                     const auto key = [&files](const Place &place) {
                       constexpr int kLast = std::numeric_limits<int>::max();
                       return std::tuple(files.indexOf(place.file),
                                         place.line == 0 ? kLast : place.line, place.column);
                     };
                     return key(one.place) < key(other.place);
                   });
  return sorted;
}

bool Findings::Has(const char *cause) const {
  return std::any_of(findings_.begin(), findings_.end(), [cause](const Finding &finding) {
    return finding.cause == FindCause(QLatin1String(cause));
  });
}

int Findings::Count(Level level) const {
  return static_cast<int>(
      std::count_if(findings_.begin(), findings_.end(),
                    [level](const Finding &finding) { return finding.level == level; }));
}

Findings Findings::About(const QString &event) const {
  Findings about;
  std::copy_if(findings_.begin(), findings_.end(), std::back_inserter(about.findings_),
               [&event](const Finding &finding) {
                 return finding.events.isEmpty() || finding.events.contains(event);
               });
  return about;
}

QString ClosestTo(const QString &word, const QStringList &candidates) {
  constexpr int kLikeness = 3;  // letters that a beginning must have
  const QString lower = word.toLower();
  QString closest;
  int least = kLikeness;
  for (const QString &candidate : candidates) {
    const QString other = candidate.toLower();
    const bool beginsLike = std::min(lower.size(), other.size()) >= kLikeness &&
                            (lower.startsWith(other) || other.startsWith(lower));
    const int distance = beginsLike ? 0 : Distance(lower, other);
    if (distance < least && 2 * distance < lower.size()) {
      closest = candidate;
      least = distance;
    }
  }
  return closest;
}

QString Printable(const QString &text) {
  QString printable;
  for (const QChar character : text) {
    if (character == QLatin1Char('\n')) {
      printable += QLatin1String("\\n");
    } else if (character == QLatin1Char('\t')) {
      printable += QLatin1String("\\t");
    } else if (character.category() == QChar::Other_Control) {
      printable += QStringLiteral("\\x%1").arg(character.unicode(), 2, 16, QLatin1Char('0'));
    } else {
      printable += character;
    }
  }
  return printable;
}

QString Quoted(const QString &text) {
  QString quoted = text;
  quoted.replace(QLatin1Char('\\'), QLatin1String("\\\\"))
      .replace(QLatin1Char('"'), QLatin1String("\\\""));
  return QLatin1Char('"') + Printable(quoted) + QLatin1Char('"');
}

}  // namespace ov
