#include "support/descriptors.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <linux/close_range.h>
#include <unistd.h>

#include <filesystem>
#include <iterator>

namespace ov {

std::size_t CountOpenDescriptors() {
  const std::filesystem::directory_iterator entries("/proc/self/fd");
  return static_cast<std::size_t>(std::distance(begin(entries), end(entries)));
}

bool IsOpen(int fd) { return fcntl(fd, F_GETFD) != -1; }

int OpenNull() { return open("/dev/null", O_RDONLY | O_CLOEXEC); }

bool IsCloseOnExec(int fd) {
  const int flags = fcntl(fd, F_GETFD);
  return flags != -1 && (flags & FD_CLOEXEC) != 0;
}

void CloseOpenDescriptorsOnExec() {
  constexpr unsigned kFirst = STDERR_FILENO + 1;
  EXPECT_EQ(close_range(kFirst, ~0U, CLOSE_RANGE_CLOEXEC), 0);
}

NoMoreDescriptors::NoMoreDescriptors() {
  getrlimit(RLIMIT_NOFILE, &before_);
  const rlimit none{0, before_.rlim_max};
  setrlimit(RLIMIT_NOFILE, &none);
}

NoMoreDescriptors::~NoMoreDescriptors() { setrlimit(RLIMIT_NOFILE, &before_); }

}  // namespace ov
