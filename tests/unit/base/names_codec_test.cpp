#include "base/names_codec.h"

#include <QFile>
#include <QTextCodec>

#include "support/support.h"

namespace ov {
namespace {

class NamesCodecTest : public testing::Test {
 protected:
  NamesCodecTest() { UseUtf8ForNames(); }
};

TEST_F(NamesCodecTest, FileNamesAreUtf8WhateverTheLocale) {
  EXPECT_EQ(QFile::encodeName(QString::fromUtf8("/tmp/Gerät ☃")).toStdString(), "/tmp/Gerät ☃");
  EXPECT_EQ(QFile::decodeName("/tmp/Gerät ☃").toStdString(), "/tmp/Gerät ☃");
}

TEST_F(NamesCodecTest, QtsOwnUtf8CodecStaysReachable) {
  const QTextCodec *codec = QTextCodec::codecForName("UTF-8");
  ASSERT_NE(codec, nullptr);
  EXPECT_NE(codec, QTextCodec::codecForLocale());
  EXPECT_EQ(codec->name().toStdString(), "UTF-8");
}

}  // namespace
}  // namespace ov
