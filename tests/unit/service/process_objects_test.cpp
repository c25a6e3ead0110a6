#include "support/support.h"

namespace ov {
namespace {

TEST(ProcessObjectsTest, SettingsAreConstructedFirstAndTheQueueLast) {
  EXPECT_THAT(ConstructedObjects(),
              testing::ElementsAre("settings", "catalogue", "forwarding", "queue"));
}

}  // namespace
}  // namespace ov
