#include "base/unique_fd.h"

#include <fcntl.h>
#include <gtest/gtest.h>

#include <utility>

#include "support/descriptors.h"

namespace ov {
namespace {

TEST(UniqueFdTest, HoldsNothingByDefault) {
  const UniqueFd none;
  EXPECT_FALSE(none.IsOpen());
  EXPECT_EQ(none.Get(), -1);
}

TEST(UniqueFdTest, HoldsWhatItIsGiven) {
  const int fd = OpenNull();
  const UniqueFd owner(fd);
  EXPECT_TRUE(owner.IsOpen());
  EXPECT_EQ(owner.Get(), fd);
}

TEST(UniqueFdTest, ClosesAtTheEndOfItsLife) {
  const int fd = OpenNull();
  { const UniqueFd owner(fd); }
  EXPECT_FALSE(IsOpen(fd));
}

TEST(UniqueFdTest, TreatsAFailedOpenAsNothing) {
  const UniqueFd owner(open("/nowhere", O_RDONLY));
  EXPECT_FALSE(owner.IsOpen());
}

TEST(UniqueFdTest, TreatsDescriptorZeroAsOpen) {
  UniqueFd owner(dup2(OpenNull(), STDIN_FILENO));
  EXPECT_TRUE(owner.IsOpen());
  owner.Reset();
  EXPECT_FALSE(IsOpen(STDIN_FILENO));
}

TEST(UniqueFdTest, ResetClosesWhatIsHeld) {
  const int fd = OpenNull();
  UniqueFd owner(fd);
  owner.Reset();
  EXPECT_FALSE(IsOpen(fd));
  EXPECT_EQ(owner.Get(), -1);
}

TEST(UniqueFdTest, ResetTakesOverAnother) {
  const int first = OpenNull();
  const int second = OpenNull();
  UniqueFd owner(first);
  owner.Reset(second);
  EXPECT_FALSE(IsOpen(first));
  EXPECT_TRUE(IsOpen(second));
  EXPECT_EQ(owner.Get(), second);
}

TEST(UniqueFdTest, MoveHandsOverWithoutClosing) {
  const int fd = OpenNull();
  UniqueFd source(fd);
  const UniqueFd target(std::move(source));
  EXPECT_EQ(source.Get(), -1);  // NOLINT: what is left behind
  EXPECT_EQ(target.Get(), fd);
  EXPECT_TRUE(IsOpen(fd));
}

TEST(UniqueFdTest, MoveAssignmentClosesWhatTheTargetHeld) {
  const int held = OpenNull();
  const int taken = OpenNull();
  UniqueFd target(held);
  target = UniqueFd(taken);
  EXPECT_FALSE(IsOpen(held));
  EXPECT_TRUE(IsOpen(taken));
  EXPECT_EQ(target.Get(), taken);
}

}  // namespace
}  // namespace ov
