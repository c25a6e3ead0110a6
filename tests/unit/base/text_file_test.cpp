#include "base/text_file.h"

#include <gtest/gtest.h>

#include <QByteArray>
#include <QStringList>

namespace ov {
namespace {

QStringList LinesOf(const QByteArray &content) {
  const QString path = QStringLiteral("/tmp/text");
  QFile written(path);
  EXPECT_TRUE(written.open(QIODevice::WriteOnly));
  written.write(content);
  written.close();

  QFile file(path);
  EXPECT_TRUE(file.open(QIODevice::ReadOnly | QIODevice::Text));
  QStringList lines;
  QString line;
  while (ReadLine(file, line)) {
    lines.append(line);
  }
  return lines;
}

QStringList List(std::initializer_list<const char *> texts) {
  QStringList list;
  for (const char *text : texts) {
    list.append(QString::fromUtf8(text));
  }
  return list;
}

TEST(TextFileTest, EmptyFileHasNoLine) { EXPECT_EQ(LinesOf(""), List({})); }

TEST(TextFileTest, LastLineNeedsNoLineFeed) { EXPECT_EQ(LinesOf("a\nb"), List({"a", "b"})); }

TEST(TextFileTest, LastLineFeedBeginsNoLine) { EXPECT_EQ(LinesOf("a\n\n"), List({"a", ""})); }

TEST(TextFileTest, CarriageReturnsAreDropped) {
  EXPECT_EQ(LinesOf("a\r\nb\r\r\nc\rd\n\re"), List({"a", "b", "cd", "e"}));
}

TEST(TextFileTest, CarriageReturnsAtTheEndAreNoLineWhereverTheyLieInTheBuffer) {
  constexpr int kBuffer = 16384;  // what Qt reads at once
  const QByteArray returns(kBuffer + 1, '\r');
  for (const int before : {0, 1, 2, kBuffer - 2, kBuffer - 1, kBuffer, kBuffer + 1}) {
    for (const int count : {1, 2, kBuffer + 1}) {
      const QByteArray lines = before == 0 ? "" : QByteArray(before - 1, 'x') + "\n";
      EXPECT_EQ(LinesOf(lines + returns.left(count)), LinesOf(lines))
          << count << " behind " << before;
    }
  }
}

TEST(TextFileTest, CarriageReturnsThatFillTheBufferDoNotEndTheFile) {
  EXPECT_EQ(LinesOf("a\n" + QByteArray(40'000, '\r') + "\nb\n"), List({"a", "", "b"}));
}

TEST(TextFileTest, CarriageReturnBetweenTheBytesOfACharacterIsDropped) {
  EXPECT_EQ(LinesOf("\xDF\r\x87\n"), List({"\u07C7"}));
}

TEST(TextFileTest, ByteOrderMarkIsDropped) {
  EXPECT_EQ(LinesOf("\xEF\xBB\xBF#a\nb\n"), List({"#a", "b"}));
}

TEST(TextFileTest, BytesThatAreNoUtf8AreReplaced) {
  EXPECT_EQ(LinesOf("a\xFFz\n"), List({"a\xEF\xBF\xBDz"}));
}

TEST(TextFileTest, ZeroBytesAreKept) {
  EXPECT_EQ(LinesOf(QByteArray("a\0b\n", 4)), QStringList{QString::fromUtf8("a\0b", 3)});
}

TEST(TextFileTest, LineMayBeLong) {
  EXPECT_EQ(LinesOf(QByteArray(1'000'000, 'x') + "\ny\n"),
            (QStringList{QString(1'000'000, QLatin1Char('x')), QStringLiteral("y")}));
}

TEST(TextFileTest, FileThatCannotBeReadHasNoLine) {
  QFile unreadable(QStringLiteral("/proc/self/mem"));  // opens, but has nothing at its start
  ASSERT_TRUE(unreadable.open(QIODevice::ReadOnly | QIODevice::Text));
  QString line;
  EXPECT_FALSE(ReadLine(unreadable, line));
}

}  // namespace
}  // namespace ov
