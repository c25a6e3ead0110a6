// The open descriptors of the test's process.
#pragma once

#include <sys/resource.h>

#include <cstddef>

namespace ov {

std::size_t CountOpenDescriptors();

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
