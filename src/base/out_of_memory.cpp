#include "base/out_of_memory.h"

#include <cstdio>
#include <cstdlib>
#include <new>

namespace ov {
namespace {

thread_local bool t_throws = false;

void ThrowOrEnd() {
  if (t_throws) {
    throw std::bad_alloc();
  }
  std::fputs("Out of memory\n", stderr);
  std::abort();
}

}  // namespace

void EndWhenOutOfMemory() { std::set_new_handler(ThrowOrEnd); }

OutOfMemoryThrows::OutOfMemoryThrows() { t_throws = true; }

OutOfMemoryThrows::~OutOfMemoryThrows() { t_throws = false; }

}  // namespace ov
