#include "base/unique_fd.h"

#include <fcntl.h>

#include <utility>

#include "support/support.h"

namespace ov {
namespace {

TEST(UniqueFdTest, OwnerHoldsNothingByDefaultAndClosesItsDescriptorAtTheEndOfItsLife) {
  EXPECT_EQ(UniqueFd().Get(), -1);
  EXPECT_FALSE(UniqueFd().IsOpen());
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
  owner = UniqueFd();
  EXPECT_FALSE(IsOpen(second));
  EXPECT_EQ(owner.Get(), -1);
}

TEST(UniqueFdTest, MoveHandsOverWithoutClosing) {
  const int fd = OpenNull();
  UniqueFd source(fd);
  UniqueFd target(std::move(source));
  EXPECT_EQ(source.Get(), -1);  // NOLINT: what is left behind
  UniqueFd other;
  other = std::move(target);
  EXPECT_EQ(target.Get(), -1);  // NOLINT: what is left behind
  EXPECT_EQ(other.Get(), fd);
  EXPECT_TRUE(IsOpen(fd));
}

}  // namespace
}  // namespace ov
