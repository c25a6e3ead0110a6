// Keeps the tests from running outside scripts/sandbox, where they would write to the fixed paths
// of an event logger that may be in use, and change the machine's interfaces and its name.
#include <gtest/gtest.h>
#include <unistd.h>

namespace ov {
namespace {

class SandboxGuard : public testing::Environment {
 public:
  void SetUp() override {
    ASSERT_EQ(access("/run/kept", F_OK), 0) << "Run this with scripts/sandbox --keep-command.";
  }
};

[[maybe_unused]] const testing::Environment *const kGuard =
    testing::AddGlobalTestEnvironment(new SandboxGuard);

}  // namespace
}  // namespace ov
