#include "base/shared_fd.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include "support/descriptors.h"

namespace ov {
namespace {

TEST(SharedFdTest, HoldsNothingAtFirst) { EXPECT_EQ(SharedFd().InUse().Get(), -1); }

TEST(SharedFdTest, HoldsWhatItIsGiven) {
  const int fd = OpenNull();
  SharedFd shared;
  shared.Replace(fd);
  EXPECT_EQ(shared.InUse().Get(), fd);
  EXPECT_TRUE(IsOpen(fd));
}

TEST(SharedFdTest, ClosesAtTheEndOfItsLife) {
  const int fd = OpenNull();
  { SharedFd().Replace(fd); }
  EXPECT_FALSE(IsOpen(fd));
}

TEST(SharedFdTest, TreatsDescriptorZeroAsOpen) {
  SharedFd shared;
  shared.Replace(dup2(OpenNull(), STDIN_FILENO));
  EXPECT_EQ(shared.InUse().Get(), STDIN_FILENO);
  shared.Close();
  EXPECT_FALSE(IsOpen(STDIN_FILENO));
}

TEST(SharedFdTest, ReplacedDescriptorStaysOpen) {
  const int before = OpenNull();
  SharedFd shared;
  shared.Replace(before);
  shared.Replace(-1);
  EXPECT_EQ(shared.InUse().Get(), -1);
  EXPECT_TRUE(IsOpen(before));
  close(before);
}

TEST(SharedFdTest, ClosedDescriptorIsNoLongerHeld) {
  const int fd = OpenNull();
  SharedFd shared;
  shared.Replace(fd);
  shared.Close();
  EXPECT_EQ(shared.InUse().Get(), -1);
  EXPECT_FALSE(IsOpen(fd));
}

TEST(SharedFdTest, DescriptorInUseIsClosedAfterItsLastUse) {
  const int fd = OpenNull();
  SharedFd shared;
  shared.Replace(fd);
  {
    const SharedFd::Use first = shared.InUse();
    {
      const SharedFd::Use second = shared.InUse();
      shared.Close();
      EXPECT_EQ(second.Get(), fd);
    }
    EXPECT_TRUE(IsOpen(fd));
    EXPECT_EQ(first.Get(), fd);
  }
  EXPECT_FALSE(IsOpen(fd));
}

TEST(SharedFdTest, ReplacedDescriptorInUseStaysOpenAfterIt) {
  const int before = OpenNull();
  SharedFd shared;
  shared.Replace(before);
  {
    const SharedFd::Use use = shared.InUse();
    shared.Replace(-1);
    EXPECT_EQ(use.Get(), before);
  }
  EXPECT_TRUE(IsOpen(before));
  close(before);
}

}  // namespace
}  // namespace ov
