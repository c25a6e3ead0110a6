#include "support/wrapped_calls.h"

#include <ifaddrs.h>
#include <pthread.h>
#include <sys/socket.h>

#include <array>
#include <atomic>
#include <chrono>
#include <memory>
#include <mutex>
#include <thread>
#include <utility>

#include "config/settings.h"
#include "event/event_queue.h"
#include "output/forwarding.h"
#include "service/event_catalogue.h"

namespace ov {

std::atomic<int> g_threadStartError{0};
std::atomic<int> g_threadJoinError{0};
std::atomic<int> g_threadsStartLate{0};
std::atomic<int> g_sleepsAreShort{0};
std::atomic<int> g_sleepsLast{0};
std::atomic<int> g_threadJoins{0};
std::atomic<int> g_hardwareAddressesAreHidden{0};
std::function<void()> g_beforeAccept;

}  // namespace ov

namespace {

constexpr std::chrono::milliseconds kShortSleep{1};
constexpr std::chrono::milliseconds kLateness{20};

std::mutex sleepsMutex;
std::vector<unsigned> sleeps;  // guarded by the mutex

// Filled before main, and so without constructors of their own.
std::array<const char *, 16> constructed;
std::size_t constructedCount = 0;

void NoteConstruction(const void *object, const void *candidate, const char *name) {
  if (object == candidate) {
    constructed[constructedCount++ % constructed.size()] = name;
  }
}

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
int __real___cxa_atexit(void (*destroy)(void *), void *object, void *library);
int __real_accept4(int listener, sockaddr *address, socklen_t *size, int flags);
int __real_getifaddrs(ifaddrs **list);
int __real_pthread_create(pthread_t *thread, const pthread_attr_t *attributes,
                          void *(*body)(void *), void *argument);
int __real_pthread_join(pthread_t thread, void **result);
unsigned __real_sleep(unsigned seconds);

// An object's destructor is registered right after its constructor has run.
int __wrap___cxa_atexit(void (*destroy)(void *), void *object, void *library) {
  NoteConstruction(object, &ov::g_settings, "settings");
  NoteConstruction(object, &ov::g_eventCatalogue, "catalogue");
  NoteConstruction(object, &ov::g_forwarding, "forwarding");
  NoteConstruction(object, &ov::g_eventQueue, "queue");
  return __real___cxa_atexit(destroy, object, library);
}

int __wrap_accept4(int listener, sockaddr *address, socklen_t *size, int flags) {
  if (const auto act = std::exchange(ov::g_beforeAccept, nullptr)) {
    act();
  }
  return __real_accept4(listener, address, size, flags);
}

int __wrap_getifaddrs(ifaddrs **list) {
  const int result = __real_getifaddrs(list);
  if (result == 0 && ov::g_hardwareAddressesAreHidden != 0) {
    for (ifaddrs *entry = *list; entry != nullptr; entry = entry->ifa_next) {
      if (entry->ifa_addr->sa_family == AF_PACKET) {
        entry->ifa_addr = nullptr;
      }
    }
  }
  return result;
}

int __wrap_pthread_create(pthread_t *thread, const pthread_attr_t *attributes,
                          void *(*body)(void *), void *argument) {
  if (ov::g_threadStartError != 0) {
    *thread = ~pthread_t{0};  // left undefined by a call that fails
    return ov::g_threadStartError;
  }
  if (ov::g_threadsStartLate != 0) {
    return __real_pthread_create(thread, attributes, RunLate, new LateThread{body, argument});
  }
  return __real_pthread_create(thread, attributes, body, argument);
}

int __wrap_pthread_join(pthread_t thread, void **result) {
  ++ov::g_threadJoins;
  if (ov::g_threadJoinError != 0) {
    pthread_detach(thread);
    return ov::g_threadJoinError;
  }
  return __real_pthread_join(thread, result);
}

unsigned __wrap_sleep(unsigned seconds) {
  if (ov::g_sleepsAreShort == 0) {
    return __real_sleep(seconds);
  }
  {
    const std::lock_guard<std::mutex> lock(sleepsMutex);
    sleeps.push_back(seconds);
  }
  do {
    std::this_thread::sleep_for(kShortSleep);
  } while (ov::g_sleepsLast != 0);
  return 0;
}
}
// NOLINTEND(bugprone-reserved-identifier)

namespace ov {

std::vector<unsigned> TakeSleeps() {
  const std::lock_guard<std::mutex> lock(sleepsMutex);
  return std::exchange(sleeps, {});
}

std::vector<std::string> ConstructedObjects() {
  return {constructed.begin(), constructed.begin() + constructedCount};
}

}  // namespace ov
