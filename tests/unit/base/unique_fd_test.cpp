#include "base/unique_fd.h"

#include <fcntl.h>

#include <utility>

#include "support/support.h"

namespace ov {
namespace {

TEST(UniqueFdTest, NothingIsHeldByDefaultAndAfterAFailedOpen) {
  EXPECT_EQ(UniqueFd().Get(), -1);
  EXPECT_FALSE(UniqueFd().IsOpen());
  EXPECT_FALSE(UniqueFd(open("/nowhere", O_RDONLY)).IsOpen());
}

TEST(UniqueFdTest, DescriptorIsClosedAtTheEndOfItsOwnersLife) {
  const int fd = OpenNull();
  {
    const UniqueFd owner(fd);
    EXPECT_TRUE(owner.IsOpen());
    EXPECT_TRUE(IsOpen(fd));
  }
  EXPECT_FALSE(IsOpen(fd));
}

TEST(UniqueFdTest, DescriptorZeroIsOpenAndIsClosed) {
  const UniqueFd saved(dup(STDIN_FILENO));
  UniqueFd owner(STDIN_FILENO);
  EXPECT_TRUE(owner.IsOpen());
  owner.Reset();
  EXPECT_FALSE(IsOpen(STDIN_FILENO));
  EXPECT_EQ(dup2(saved.Get(), STDIN_FILENO), STDIN_FILENO);
}

TEST(UniqueFdTest, ResetClosesTheDescriptorAndTakesOverAnother) {
  const int first = OpenNull();
  const int second = OpenNull();
  UniqueFd owner(first);
  owner.Reset(second);
  EXPECT_FALSE(IsOpen(first));
  EXPECT_EQ(owner.Get(), second);
  owner.Reset();
  EXPECT_FALSE(IsOpen(second));
  EXPECT_EQ(owner.Get(), -1);
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
