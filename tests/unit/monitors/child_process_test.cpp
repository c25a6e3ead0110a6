#include "monitors/child_process.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/wait.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <ctime>
#include <string>
#include <string_view>
#include <vector>

#include "base/unique_fd.h"
#include "support/descriptors.h"
#include "support/files.h"
#include "support/polling.h"
#include "support/programs.h"

namespace ov {
namespace {

using std::chrono::milliseconds;

constexpr char kScript[] = "/tmp/script.sh";
constexpr milliseconds kShort{300};
constexpr milliseconds kLong{20'000};

QByteArray Read(std::string_view lines, milliseconds timeout) {
  WriteScript(kScript, lines);
  return ChildProcess(QLatin1String(kScript), {}).ReadUntilEnd(timeout);
}

bool HasNoChildren() { return waitpid(-1, nullptr, WNOHANG) == -1 && errno == ECHILD; }

// In a sandbox of its own, orphans of other tests become children of this process.
class ChildProcessTest : public testing::Test {
 protected:
  void SetUp() override {
    ASSERT_TRUE(Eventually([] {
      while (waitpid(-1, nullptr, WNOHANG) > 0) {
      }
      return HasNoChildren();
    }));
  }
};

/// While it lives, only so many more descriptors can be opened.
class FewMoreDescriptors {
 public:
  explicit FewMoreDescriptors(std::size_t count) {
    do {
      taken_.emplace_back(open("/dev/null", O_RDONLY | O_CLOEXEC));
    } while (taken_.back().IsOpen());
    taken_.resize(taken_.size() - 1 - count);
  }

 private:
  std::vector<UniqueFd> taken_;
};

TEST_F(ChildProcessTest, ReadingEndsWithTheProgram) {
  QByteArray output;
  EXPECT_LT(TimeOf([&] { output = Read("echo done", kLong); }), kLong);
  EXPECT_EQ(output, "done\n");
}

TEST_F(ChildProcessTest, WhatCameInTimeIsReturned) {
  WriteScript(kScript, "echo so far; exec sleep 60");
  ChildProcess process(QLatin1String(kScript), {});
  QByteArray output;
  EXPECT_TRUE(Eventually([&] {
    output += process.ReadUntilEnd(kShort);
    return output == "so far\n";
  }));
}

TEST_F(ChildProcessTest, ReadingTakesItsTimeAndNoMore) {
  const milliseconds time = TimeOf([] { Read("exec sleep 60", kShort); });
  EXPECT_GE(time, kShort);
  EXPECT_LT(time, kLong);
}

TEST_F(ChildProcessTest, ReadingIsNotCutShortByAMillisecond) {
  constexpr int kReadings = 20;
  WriteScript(kScript, "exec sleep 60");
  ChildProcess process(QLatin1String(kScript), {});
  EXPECT_GE(TimeOf([&] {
              for (int reading = 0; reading < kReadings; ++reading) {
                process.ReadUntilEnd(milliseconds{1});
              }
            }),
            milliseconds{kReadings});
}

TEST_F(ChildProcessTest, ProgramThatClosedItsOutputIsWaitedForWithoutUseOfTheProcessor) {
  WriteScript(kScript, "exec sleep 60 >&-");
  ChildProcess process(QLatin1String(kScript), {});
  const std::clock_t before = std::clock();
  EXPECT_GE(TimeOf([&] { process.ReadUntilEnd(kShort); }), kShort);
  EXPECT_LT(std::clock() - before, CLOCKS_PER_SEC / 20);
}

TEST_F(ChildProcessTest, ProgramOutOfTimeIsKilledAndReaped) {
  Read("trap '' TERM HUP INT; read -r line", kShort);
  EXPECT_TRUE(HasNoChildren());
}

TEST_F(ChildProcessTest, ProgramThatIsNotReadIsKilledAndReaped) {
  WriteScript(kScript, "exec sleep 60");
  { const ChildProcess unread(QLatin1String(kScript), {}); }
  EXPECT_TRUE(HasNoChildren());
}

TEST_F(ChildProcessTest, FloodIsReadToTheLimitOnly) {
  // The first that it writes goes past the limit; there is time to read the rest, if anyone did.
  const std::string first = "head -c " + std::to_string(kOutputLimit + 1) + " /dev/zero\n";
  const int size = Read(first + "yes &\nexec sleep 0.3", milliseconds{60'000}).size();
  EXPECT_GT(size, kOutputLimit);
  EXPECT_LE(size, kOutputLimit + 1024 * 1024);  // the most that a pipe holds
}

TEST_F(ChildProcessTest, FloodIsNotReadPastTheTime) {
  WriteScript(kScript, "exec yes");
  ChildProcess process(QLatin1String(kScript), {});
  int looks = 0;
  int most = 0;
  EXPECT_TRUE(Eventually([&] {
    const int size = process.ReadUntilEnd(milliseconds{0}).size();
    looks += size > 0 ? 1 : 0;
    most = std::max(most, size);
    return looks == 200;
  }));
  EXPECT_LE(most, 64 * 1024);  // what a pipe holds, unless the program changes it
}

TEST_F(ChildProcessTest, FloodFromTheBackgroundDoesNotDelayTheEnd) {
  EXPECT_LT(TimeOf([] { Read("yes & exit 0", kLong); }), kLong);
}

TEST_F(ChildProcessTest, BrokenPipeEndsTheProgramEvenIfTheServiceIgnoresIt) {
  const auto before = std::signal(SIGPIPE, SIG_IGN);
  const QByteArray ignored = Read("grep ^SigIgn: /proc/self/status | cut -f 2", kLong);
  std::signal(SIGPIPE, before);
  bool valid = false;
  EXPECT_EQ(ignored.trimmed().toULongLong(&valid, 16) & (1U << (SIGPIPE - 1)), 0U);
  EXPECT_TRUE(valid);
}

TEST_F(ChildProcessTest, InputIsOpenAndSilent) {
  EXPECT_EQ(Read("read -r line && echo read; echo $?", kShort), "");
}

TEST_F(ChildProcessTest, WithoutDescriptorsNothingRuns) {
  WriteScript(kScript, "echo run >/tmp/ran");
  const NoMoreDescriptors none;
  EXPECT_EQ(ChildProcess(QLatin1String(kScript), {}).ReadUntilEnd(kLong), "");
  EXPECT_TRUE(HasNoChildren());
}

class ChildProcessDescriptorsTest : public ChildProcessTest,
                                    public testing::WithParamInterface<std::size_t> {};

// Two pipes take four, and the process one.
INSTANTIATE_TEST_SUITE_P(Few, ChildProcessDescriptorsTest, testing::Range<std::size_t>(0, 5));

TEST_P(ChildProcessDescriptorsTest, TooFewGiveNoOutputAtOnceAndLeaveNothing) {
  WriteScript(kScript, "exec sleep 60");
  const std::size_t before = CountOpenDescriptors();
  EXPECT_LT(TimeOf([] {
              const FewMoreDescriptors few(GetParam());
              EXPECT_EQ(ChildProcess(QLatin1String(kScript), {}).ReadUntilEnd(kLong), "");
            }),
            kLong);
  EXPECT_TRUE(HasNoChildren());
  EXPECT_EQ(CountOpenDescriptors(), before);
}

}  // namespace
}  // namespace ov
