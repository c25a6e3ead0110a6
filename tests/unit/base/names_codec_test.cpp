#include "base/names_codec.h"

#include <gtest/gtest.h>

#include <QFile>
#include <QTextCodec>
#include <cstdlib>
#include <string>

namespace ov {
namespace {

class NamesCodecTest : public testing::Test {
 protected:
  NamesCodecTest() {
    setenv("LC_ALL", "C", 1);
    UseUtf8ForNames();
  }
};

TEST_F(NamesCodecTest, FileNamesAreWrittenAsUtf8WhateverTheLocale) {
  EXPECT_EQ(QFile::encodeName(QString::fromUtf8("/tmp/Gerät ☃")).toStdString(), "/tmp/Gerät ☃");
}

TEST_F(NamesCodecTest, FileNamesAreReadAsUtf8WhateverTheLocale) {
  EXPECT_EQ(QFile::decodeName("/tmp/Gerät ☃").toStdString(), "/tmp/Gerät ☃");
}

TEST_F(NamesCodecTest, LocaleTextIsUtf8) {
  EXPECT_EQ(QString::fromLocal8Bit("Gerät ☃").toStdString(), "Gerät ☃");
}

TEST_F(NamesCodecTest, QtsOwnUtf8CodecStaysReachable) {
  const QTextCodec *codec = QTextCodec::codecForName("UTF-8");
  ASSERT_NE(codec, nullptr);
  EXPECT_NE(codec, QTextCodec::codecForLocale());
  EXPECT_EQ(codec->name().toStdString(), "UTF-8");
}

}  // namespace
}  // namespace ov
