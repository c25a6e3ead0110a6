#include "support/descriptors.h"

#include <fcntl.h>
#include <unistd.h>

#include <filesystem>
#include <future>
#include <iterator>
#include <thread>

namespace ov {
namespace {

std::size_t CountEntries(const char *folder) {
  const std::filesystem::directory_iterator entries(folder);
  return static_cast<std::size_t>(std::distance(begin(entries), end(entries)));
}

}  // namespace

std::size_t CountOpenDescriptors() { return CountEntries("/proc/self/fd"); }

std::size_t CountThreads() {
  std::promise<void> counted;
  std::thread another([end = counted.get_future()] { end.wait(); });
  const std::size_t threads = CountEntries("/proc/self/task");
  counted.set_value();
  another.join();
  return threads - 1;
}

bool IsOpen(int fd) { return fcntl(fd, F_GETFD) != -1; }

int OpenNull() { return open("/dev/null", O_RDONLY | O_CLOEXEC); }

bool HasInheritableDescriptors() {
  for (int fd = STDERR_FILENO + 1; fd < 1024; ++fd) {
    const int flags = fcntl(fd, F_GETFD);
    if (flags != -1 && (flags & FD_CLOEXEC) == 0) {
      return true;
    }
  }
  return false;
}

NoMoreDescriptors::NoMoreDescriptors() {
  getrlimit(RLIMIT_NOFILE, &before_);
  const rlimit none{0, before_.rlim_max};
  setrlimit(RLIMIT_NOFILE, &none);
}

NoMoreDescriptors::~NoMoreDescriptors() { setrlimit(RLIMIT_NOFILE, &before_); }

}  // namespace ov
