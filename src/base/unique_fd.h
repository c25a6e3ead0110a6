// A descriptor that closes itself. One thread at a time may use an object.
#pragma once

#include <unistd.h>

#include <utility>

namespace ov {

/// Owns one POSIX file descriptor, or none (-1).
class UniqueFd {
 public:
  UniqueFd() = default;
  explicit UniqueFd(int fd) : fd_(fd) {}
  UniqueFd(UniqueFd &&other) noexcept : fd_(std::exchange(other.fd_, kNone)) {}
  UniqueFd &operator=(UniqueFd &&other) noexcept {
    Reset(std::exchange(other.fd_, kNone));
    return *this;
  }
  UniqueFd(const UniqueFd &) = delete;
  UniqueFd &operator=(const UniqueFd &) = delete;
  ~UniqueFd() { Reset(); }

  [[nodiscard]] int Get() const { return fd_; }
  [[nodiscard]] bool IsOpen() const { return fd_ >= 0; }

  /// Closes the descriptor, if there is one, and takes over `fd`.
  void Reset(int fd = kNone) {
    if (fd_ >= 0) {
      close(fd_);
    }
    fd_ = fd;
  }

 private:
  static constexpr int kNone = -1;
  int fd_ = kNone;
};

}  // namespace ov
