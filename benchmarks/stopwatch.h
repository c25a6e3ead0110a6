// Prints how long something took.
#pragma once

#include <chrono>
#include <cstdio>

template <typename Work>
void PrintNanoseconds(Work work) {
  const auto start = std::chrono::steady_clock::now();
  work();
  const std::chrono::nanoseconds taken = std::chrono::steady_clock::now() - start;
  std::fprintf(stderr, "%lld\n", static_cast<long long>(taken.count()));
}
