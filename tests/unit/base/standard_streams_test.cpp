#include "base/standard_streams.h"

#include <fcntl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <QDebug>
#include <cstdio>
#include <cstdlib>

#include "base/unique_fd.h"
#include "support/support.h"

namespace ov {
namespace {

TEST(StandardStreamsTest, QtsMessagesArePlainUtf8LinesOnStandardErrorInTheirOrder) {
  const Output output = OutputOf([] {
    qDebug() << "Agent status:" << 3;
    qWarning() << "Unable to open file:";
    std::fputs("not of Qt\n", stderr);
    qWarning() << "line:" << QString::fromUtf8(R"(Gerät "a\b)");
    qWarning() << "";
  });
  EXPECT_EQ(output, (Output{"",
                            "Agent status: 3\nUnable to open file:\nnot of Qt\n"
                            "line: \"Gerät \\\"a\\\\b\"\n\n"}));
}

// What each write to the descriptor held, while the action ran.
template <typename Action>
std::vector<std::string> WritesTo(int descriptor, Action action) {
  std::array<int, 2> ends{};
  EXPECT_EQ(socketpair(AF_UNIX, SOCK_DGRAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0, ends.data()), 0);
  const UniqueFd reader(ends[0]);
  const UniqueFd writer(ends[1]);
  const UniqueFd saved(fcntl(descriptor, F_DUPFD_CLOEXEC, 0));
  dup2(writer.Get(), descriptor);
  action();
  dup2(saved.Get(), descriptor);
  std::vector<std::string> writes;
  std::array<char, 256> bytes{};
  for (ssize_t size = 0; (size = read(reader.Get(), bytes.data(), bytes.size())) >= 0;) {
    writes.emplace_back(bytes.data(), static_cast<std::size_t>(size));
  }
  return writes;
}

TEST(StandardStreamsTest, DiagnosticIsOneWriteWithItsLineFeed) {
  EXPECT_EQ(WritesTo(STDERR_FILENO, [] { qWarning() << "Invalid line format:"; }),
            std::vector<std::string>{"Invalid line format:\n"});
}

TEST(StandardStreamsTest, LineOnStandardOutputIsWrittenAtOnce) {
  // The test program has printed before, and a stream changes its buffering at its next flush.
  std::puts("");
  std::fflush(stdout);
  EXPECT_EQ(WritesTo(STDOUT_FILENO, [] { std::puts("> Received event"); }),
            std::vector<std::string>{"> Received event\n"});
}

TEST(StandardStreamsTest, VariablesThatWouldDropMessagesOrEndTheProcessAreRemoved) {
  for (const char *variable : {"QT_LOGGING_RULES", "QT_LOGGING_CONF", "QT_FATAL_WARNINGS"}) {
    setenv(variable, "1", 1);
    SetUpStandardStreams();
    EXPECT_EQ(std::getenv(variable), nullptr) << variable;
  }
}

TEST(StandardStreamsTest, ClosedStreamsLeadNowhere) {
  for (const int stream : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}) {
    const UniqueFd saved(fcntl(stream, F_DUPFD_CLOEXEC, 3));
    close(stream);
    SetUpStandardStreams();
    std::array<char, 64> target{};
    const std::string link = "/proc/self/fd/" + std::to_string(stream);
    const ssize_t size = readlink(link.c_str(), target.data(), target.size());
    const int flags = fcntl(stream, F_GETFL);
    dup2(saved.Get(), stream);
    EXPECT_EQ(std::string(target.data(), size < 0 ? 0 : static_cast<std::size_t>(size)),
              "/dev/null");
    EXPECT_EQ(flags & O_ACCMODE, O_RDWR);
  }
}

}  // namespace
}  // namespace ov
