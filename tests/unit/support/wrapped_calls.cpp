#include "support/wrapped_calls.h"

#include <pthread.h>

#include <atomic>
#include <chrono>
#include <memory>
#include <mutex>
#include <utility>

namespace {

constexpr std::chrono::milliseconds kShortSleep{1};
constexpr std::chrono::milliseconds kLateness{20};

std::atomic<int> createError{0};
std::atomic<int> joinError{0};
std::atomic<bool> late{false};

std::mutex sleepsMutex;
std::vector<ov::Sleep> sleeps;  // guarded by the mutex

struct LateThread {
  void *(*body)(void *);
  void *argument;
};

void *RunLate(void *thread) {
  const std::unique_ptr<LateThread> self(static_cast<LateThread *>(thread));
  std::this_thread::sleep_for(kLateness);
  return self->body(self->argument);
}

}  // namespace

// The names that the linker makes of the wrapped functions'.
// NOLINTBEGIN(bugprone-reserved-identifier)
extern "C" {
int __real_pthread_create(pthread_t *thread, const pthread_attr_t *attributes,
                          void *(*body)(void *), void *argument);
int __real_pthread_join(pthread_t thread, void **result);

unsigned __wrap_sleep(unsigned seconds) {
  {
    const std::lock_guard<std::mutex> lock(sleepsMutex);
    sleeps.push_back({std::this_thread::get_id(), seconds});
  }
  std::this_thread::sleep_for(kShortSleep);
  return 0;
}

int __wrap_pthread_create(pthread_t *thread, const pthread_attr_t *attributes,
                          void *(*body)(void *), void *argument) {
  if (createError != 0) {
    *thread = ~pthread_t{0};  // left undefined by a call that fails
    return createError;
  }
  if (late) {
    return __real_pthread_create(thread, attributes, RunLate, new LateThread{body, argument});
  }
  return __real_pthread_create(thread, attributes, body, argument);
}

int __wrap_pthread_join(pthread_t thread, void **result) {
  if (joinError != 0) {
    pthread_detach(thread);
    return joinError;
  }
  return __real_pthread_join(thread, result);
}
}
// NOLINTEND(bugprone-reserved-identifier)

namespace ov {

std::vector<Sleep> TakeSleeps() {
  const std::lock_guard<std::mutex> lock(sleepsMutex);
  return std::exchange(sleeps, {});
}

FailingThreadStarts::FailingThreadStarts(int error) { createError = error; }
FailingThreadStarts::~FailingThreadStarts() { createError = 0; }

FailingJoins::FailingJoins(int error) { joinError = error; }
FailingJoins::~FailingJoins() { joinError = 0; }

LateThreads::LateThreads() { late = true; }
LateThreads::~LateThreads() { late = false; }

}  // namespace ov
