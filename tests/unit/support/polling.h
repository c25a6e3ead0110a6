// Waiting for what another thread or process does.
#pragma once

#include <chrono>
#include <thread>
#include <utility>

namespace ov {

/// Whether the condition comes to hold, within a time that no test needs unless it fails.
template <typename Condition>
bool Eventually(Condition &&condition) {
  constexpr std::chrono::milliseconds kPause{1};
  const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds{20};
  while (!condition()) {
    if (std::chrono::steady_clock::now() > deadline) {
      return false;
    }
    std::this_thread::sleep_for(kPause);
  }
  return true;
}

/// How long the action takes.
template <typename Action>
std::chrono::milliseconds TimeOf(Action &&action) {
  const auto start = std::chrono::steady_clock::now();
  std::forward<Action>(action)();
  return std::chrono::duration_cast<std::chrono::milliseconds>(std::chrono::steady_clock::now() -
                                                               start);
}

}  // namespace ov
