// What a piece of code prints, by stream.
#pragma once

#include <gtest/gtest.h>

#include <ostream>
#include <string>
#include <utility>

namespace ov {

struct Output {
  std::string out;
  std::string err;
};

inline const Output kNothing{"", ""};
inline const Output kSendError{"Error sending message\n", ""};

inline bool operator==(const Output &left, const Output &right) {
  return left.out == right.out && left.err == right.err;
}

inline void PrintTo(const Output &output, std::ostream *stream) {
  *stream << "standard output " << testing::PrintToString(output.out) << ", standard error "
          << testing::PrintToString(output.err);
}

/// Runs the action and returns what it wrote to the two descriptors, by whatever means.
template <typename Action>
Output OutputOf(Action &&action) {
  testing::internal::CaptureStdout();
  testing::internal::CaptureStderr();
  std::forward<Action>(action)();
  Output output;
  output.out = testing::internal::GetCapturedStdout();
  output.err = testing::internal::GetCapturedStderr();
  return output;
}

}  // namespace ov
