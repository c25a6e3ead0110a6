#include "support/files.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>

#include "base/unique_fd.h"
#include "support/expect.h"

namespace ov::fuzz {

void WriteFile(const char *path, std::string_view contents) {
  const UniqueFd file(open(path, O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644));
  const ssize_t written = write(file.Get(), contents.data(), contents.size());
  ExpectSame("size of the file written", written, static_cast<ssize_t>(contents.size()));
}

void SetModificationSecond(const char *path, std::int64_t second) {
  constexpr long kMillisecond = 1'000'000;  // nanoseconds
  static long millisecond = 0;
  millisecond = (millisecond + 1) % 1000;
  const timespec time{second, millisecond * kMillisecond};
  const std::array<timespec, 2> accessAndModification{time, time};
  ExpectSame("setting of a file's time", utimensat(AT_FDCWD, path, accessAndModification.data(), 0),
             0);
}

void RemoveFile(const char *path) { unlink(path); }

}  // namespace ov::fuzz
