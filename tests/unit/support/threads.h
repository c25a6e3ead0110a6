// The threads of the test's process.
#pragma once

#include <cstddef>
#include <filesystem>
#include <future>
#include <iterator>
#include <thread>

namespace ov {

/// Not counting one that is started for the time of the counting, as a sanitizer starts one of its
/// own beside the first. A thread that was just joined may still be counted for a moment.
inline std::size_t CountThreads() {
  std::promise<void> counted;
  std::thread another([end = counted.get_future()] { end.wait(); });
  const std::filesystem::directory_iterator entries("/proc/self/task");
  const auto threads = static_cast<std::size_t>(std::distance(begin(entries), end(entries)));
  counted.set_value();
  another.join();
  return threads - 1;
}

}  // namespace ov
