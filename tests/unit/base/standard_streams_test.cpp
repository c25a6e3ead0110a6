#include "base/standard_streams.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <QDebug>
#include <array>
#include <cstdio>
#include <string>

#include "support/output.h"

namespace ov {
namespace {

class StandardStreamsTest : public testing::Test {
 protected:
  StandardStreamsTest() { SetUpStandardStreams(); }
};

TEST_F(StandardStreamsTest, WarningIsAPlainLineOnStandardError) {
  EXPECT_EQ(OutputOf([] { qWarning() << "Unable to open file:"; }),
            (Output{"", "Unable to open file:\n"}));
}

TEST_F(StandardStreamsTest, DebugMessageIsAPlainLineOnStandardError) {
  EXPECT_EQ(OutputOf([] { qDebug() << "Agent status:" << 3; }), (Output{"", "Agent status: 3\n"}));
}

TEST_F(StandardStreamsTest, QStringIsQuoted) {
  EXPECT_EQ(OutputOf([] { qWarning() << "line:" << QStringLiteral("a,b"); }),
            (Output{"", "line: \"a,b\"\n"}));
}

TEST_F(StandardStreamsTest, QuotesAndBackslashesOfAQStringAreEscaped) {
  EXPECT_EQ(OutputOf([] { qWarning() << QStringLiteral(R"(a"b\c)"); }), (Output{"", R"("a\"b\\c")"
                                                                                    "\n"}));
}

TEST_F(StandardStreamsTest, TextIsWrittenAsUtf8) {
  EXPECT_EQ(OutputOf([] { qWarning() << QString::fromUtf8("Gerät"); }),
            (Output{"", "\"Gerät\"\n"}));
}

TEST_F(StandardStreamsTest, EmptyMessageIsAnEmptyLine) {
  EXPECT_EQ(OutputOf([] { qWarning() << ""; }), (Output{"", "\n"}));
}

TEST_F(StandardStreamsTest, MessagesKeepTheirOrder) {
  const Output output = OutputOf([] {
    qDebug() << "one";
    qWarning() << "two";
    std::fputs("three\n", stderr);
  });
  EXPECT_EQ(output, (Output{"", "one\ntwo\nthree\n"}));
}

// Without a flush, what a reader of the pipe sees after `print`.
template <typename Print>
std::string SeenAtOnceThroughAPipe(Print print) {
  // The test program has printed already, and a stream takes up its new manner at a flush that has
  // something to write.
  std::puts("");
  std::fflush(stdout);
  std::array<int, 2> ends{};
  EXPECT_EQ(pipe2(ends.data(), O_NONBLOCK | O_CLOEXEC), 0);
  const int saved = dup(STDOUT_FILENO);
  dup2(ends[1], STDOUT_FILENO);
  print();
  std::array<char, 64> bytes{};
  const ssize_t size = read(ends[0], bytes.data(), bytes.size());
  std::fflush(stdout);
  dup2(saved, STDOUT_FILENO);
  for (const int fd : {saved, ends[0], ends[1]}) {
    close(fd);
  }
  return size < 0 ? "(nothing)" : std::string(bytes.data(), static_cast<std::size_t>(size));
}

TEST_F(StandardStreamsTest, LineOnStandardOutputIsSeenAtOnce) {
  EXPECT_EQ(SeenAtOnceThroughAPipe([] { std::puts("> Received event"); }), "> Received event\n");
}

}  // namespace
}  // namespace ov
