#include "base/out_of_memory.h"

#include <gtest/gtest.h>

#include <csignal>
#include <cstdint>
#include <cstdlib>
#include <new>

namespace ov {
namespace {

// The sanitizers have an operator new of their own, which knows no handler.
#if !defined(__SANITIZE_ADDRESS__) && !defined(__SANITIZE_THREAD__)

void AllocateInVain() {
  volatile std::size_t size = PTRDIFF_MAX;
  ::operator delete(::operator new(size));
}

TEST(OutOfMemoryDeathTest, EndsTheProcessAndSaysSo) {
  const auto allocate = [] {
    EndWhenOutOfMemory();
    AllocateInVain();
  };
  EXPECT_EXIT(allocate(), testing::KilledBySignal(SIGABRT), "^Out of memory\n$");
}

TEST(OutOfMemoryDeathTest, ThrowsWhereThatIsAskedFor) {
  const auto allocate = [] {
    EndWhenOutOfMemory();
    try {
      const OutOfMemoryThrows caughtBelow;
      AllocateInVain();
    } catch (const std::bad_alloc &) {
      std::exit(EXIT_SUCCESS);
    }
  };
  EXPECT_EXIT(allocate(), testing::ExitedWithCode(EXIT_SUCCESS), "^$");
}

TEST(OutOfMemoryDeathTest, EndsTheProcessAgainBehindThat) {
  const auto allocate = [] {
    EndWhenOutOfMemory();
    { const OutOfMemoryThrows over; }
    AllocateInVain();
  };
  EXPECT_EXIT(allocate(), testing::KilledBySignal(SIGABRT), "^Out of memory\n$");
}

#endif

}  // namespace
}  // namespace ov
