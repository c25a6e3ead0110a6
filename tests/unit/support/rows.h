// Tables of cases. Each row names its outcome, which becomes the name of its test.
#pragma once

#include <gtest/gtest.h>

#include <QString>
#include <QStringList>
#include <ostream>
#include <string>
#include <vector>

namespace ov {

struct Row {
  const char *outcome;
};

struct TextRow : Row {
  std::string input;
  std::string expected;
};

inline std::ostream &operator<<(std::ostream &stream, const Row &row) {
  return stream << row.outcome;
}

/// The parts of a text between bars.
inline std::vector<std::string> Parts(const std::string &text) {
  std::vector<std::string> parts;
  for (const QString &part : QString::fromStdString(text).split(QLatin1Char('|'))) {
    parts.push_back(part.toStdString());
  }
  return parts;
}

struct OutcomeOf {
  template <typename AnyRow>
  std::string operator()(const testing::TestParamInfo<AnyRow> &info) const {
    return info.param.outcome;
  }
};

}  // namespace ov
