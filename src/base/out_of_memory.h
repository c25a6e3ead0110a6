// What comes of an allocation (operator new) that fails.
#pragma once

namespace ov {

/// From now on it ends the process by SIGABRT, after "Out of memory" on standard error: left to
/// throw, it could end in a crash inside a library. Call once, before any other thread exists.
void EndWhenOutOfMemory();

/// While one lives, an allocation that fails on its thread throws std::bad_alloc nevertheless.
class OutOfMemoryThrows {
 public:
  OutOfMemoryThrows();
  OutOfMemoryThrows(const OutOfMemoryThrows &) = delete;
  OutOfMemoryThrows &operator=(const OutOfMemoryThrows &) = delete;
  ~OutOfMemoryThrows();
};

}  // namespace ov
