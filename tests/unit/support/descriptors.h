// The open descriptors of the test's process.
#pragma once

#include <sys/resource.h>

#include <cstddef>

namespace ov {

std::size_t CountOpenDescriptors();

bool IsOpen(int fd);

/// A new descriptor, of /dev/null.
int OpenNull();

/// False also when the descriptor is not open.
bool IsCloseOnExec(int fd);

/// Lets no program see what the test's process has open now and had from its own start, the
/// standard descriptors apart.
void CloseOpenDescriptorsOnExec();

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
