// Tables of cases. Each row names its outcome, which becomes the name of its test.
#pragma once

#include <gtest/gtest.h>

#include <ostream>
#include <string>

namespace ov {

struct Row {
  const char *outcome;
};

inline std::ostream &operator<<(std::ostream &stream, const Row &row) {
  return stream << row.outcome;
}

template <typename AnyRow>
std::string OutcomeOf(const testing::TestParamInfo<AnyRow> &info) {
  return info.param.outcome;
}

}  // namespace ov
