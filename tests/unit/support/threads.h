// The threads of the test's process.
#pragma once

#include <cstddef>
#include <filesystem>
#include <iterator>

namespace ov {

inline std::size_t CountThreads() {
  const std::filesystem::directory_iterator entries("/proc/self/task");
  return static_cast<std::size_t>(std::distance(begin(entries), end(entries)));
}

}  // namespace ov
