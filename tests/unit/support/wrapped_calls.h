// The calls of the product that the linker hands to the tests first (--wrap). They do what the
// system's do, unless a test sets one of these variables.
#pragma once

#include <atomic>
#include <functional>
#include <string>
#include <vector>

namespace ov {

extern std::atomic<int> g_threadStartError;            ///< pthread_create fails with it
extern std::atomic<int> g_threadJoinError;             ///< pthread_join fails with it
extern std::atomic<int> g_threadsStartLate;            ///< by some milliseconds
extern std::atomic<int> g_sleepsAreShort;              ///< sleep returns after a millisecond
extern std::atomic<int> g_sleepsLast;                  ///< sleep returns after it is cleared again
extern std::atomic<int> g_hardwareAddressesAreHidden;  ///< getifaddrs lists them as a tunnel's
extern std::atomic<int> g_threadJoins;                 ///< the calls of pthread_join so far

/// Called once, before the next accept4.
extern std::function<void()> g_beforeAccept;

/// Sets one of the variables as long as it lives.
class Temporarily {
 public:
  explicit Temporarily(std::atomic<int> &variable, int value = 1) : variable_(variable) {
    variable_ = value;
  }
  Temporarily(const Temporarily &) = delete;
  Temporarily &operator=(const Temporarily &) = delete;
  ~Temporarily() { variable_ = 0; }

 private:
  std::atomic<int> &variable_;
};

/// The seconds that the short sleeps since the last call were to take, oldest first.
std::vector<unsigned> TakeSleeps();

/// The names of the process-wide objects in the order of their construction.
std::vector<std::string> ConstructedObjects();

}  // namespace ov
