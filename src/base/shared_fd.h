// A descriptor that one thread may close while another uses it.
#pragma once

#include <unistd.h>

#include <atomic>
#include <memory>
#include <mutex>
#include <utility>

namespace ov {

/// Holds one POSIX file descriptor, or none. What a thread uses stays open until it has done so.
class SharedFd {
 private:
  struct Descriptor {
    explicit Descriptor(int descriptor) : fd(descriptor) {}
    Descriptor(const Descriptor &) = delete;
    Descriptor &operator=(const Descriptor &) = delete;
    ~Descriptor() {
      if (fd >= 0 && !staysOpen) {
        close(fd);
      }
    }

    const int fd;
    std::atomic<bool> staysOpen{false};
  };

 public:
  /// What was held when it was made, for as long as it lives.
  class Use {
   public:
    explicit Use(std::shared_ptr<const Descriptor> descriptor)
        : descriptor_(std::move(descriptor)) {}

    [[nodiscard]] int Get() const { return descriptor_ ? descriptor_->fd : -1; }

   private:
    std::shared_ptr<const Descriptor> descriptor_;
  };

  [[nodiscard]] Use InUse() const {
    const std::lock_guard<std::mutex> lock(mutex_);
    return Use(held_);
  }

  /// Takes over `fd`; -1 for none. What was held stays open for good.
  void Replace(int fd) {
    const std::shared_ptr<Descriptor> before = Exchange(std::make_shared<Descriptor>(fd));
    if (before) {
      before->staysOpen = true;
    }
  }

  /// Closes what is held once nobody uses it any longer.
  void Close() { Exchange(nullptr); }

 private:
  std::shared_ptr<Descriptor> Exchange(std::shared_ptr<Descriptor> descriptor) {
    const std::lock_guard<std::mutex> lock(mutex_);
    return std::exchange(held_, std::move(descriptor));
  }

  mutable std::mutex mutex_;
  std::shared_ptr<Descriptor> held_;
};

}  // namespace ov
