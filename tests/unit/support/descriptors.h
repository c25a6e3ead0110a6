// The open descriptors and the threads of the test's process.
#pragma once

#include <sys/resource.h>

#include <cstddef>

namespace ov {

std::size_t CountOpenDescriptors();

/// Not counting one that is started for the time of the counting, as a sanitizer starts one of its
/// own beside the first. A thread that was just joined may still be counted for a moment.
std::size_t CountThreads();

bool IsOpen(int fd);

/// A new descriptor, of /dev/null.
int OpenNull();

/// Whether a program that this process starts would get more than the standard descriptors.
bool HasInheritableDescriptors();

/// While it lives, every call that would open a descriptor fails with EMFILE.
class NoMoreDescriptors {
 public:
  NoMoreDescriptors();
  NoMoreDescriptors(const NoMoreDescriptors &) = delete;
  NoMoreDescriptors &operator=(const NoMoreDescriptors &) = delete;
  ~NoMoreDescriptors();

 private:
  rlimit before_{};
};

}  // namespace ov
