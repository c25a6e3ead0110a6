// What monitors call of the system, in a program that is linked with --wrap for sleep,
// pthread_create and pthread_join. Its monitors sleep about a millisecond instead of a period.
#pragma once

#include <thread>
#include <vector>

namespace ov {

struct Sleep {
  std::thread::id thread;
  unsigned seconds;  ///< that were asked for
};

/// The sleeps since the last call, oldest first.
std::vector<Sleep> TakeSleeps();

/// While it lives, pthread_create fails with this error, and gives no valid thread.
class FailingThreadStarts {
 public:
  explicit FailingThreadStarts(int error);
  FailingThreadStarts(const FailingThreadStarts &) = delete;
  FailingThreadStarts &operator=(const FailingThreadStarts &) = delete;
  ~FailingThreadStarts();
};

/// While it lives, pthread_join fails with this error, and the thread goes on.
class FailingJoins {
 public:
  explicit FailingJoins(int error);
  FailingJoins(const FailingJoins &) = delete;
  FailingJoins &operator=(const FailingJoins &) = delete;
  ~FailingJoins();
};

/// While it lives, new threads wait some milliseconds before they do anything.
class LateThreads {
 public:
  LateThreads();
  LateThreads(const LateThreads &) = delete;
  LateThreads &operator=(const LateThreads &) = delete;
  ~LateThreads();
};

}  // namespace ov
