// Prints the processor time that something took.
#pragma once

#include <cstdio>
#include <ctime>

inline long long ThreadNanoseconds() {
  timespec now{};
  clock_gettime(CLOCK_THREAD_CPUTIME_ID, &now);
  return now.tv_sec * 1'000'000'000LL + now.tv_nsec;
}

template <typename Work>
void PrintNanoseconds(Work work) {
  const long long start = ThreadNanoseconds();
  work();
  std::fprintf(stderr, "%lld\n", ThreadNanoseconds() - start);
}
