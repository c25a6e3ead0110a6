#include "base/names_codec.h"

#include <QFile>
#include <QTextCodec>

#include "support/support.h"

namespace ov {
namespace {

TEST(NamesCodecTest, FileNamesAreUtf8WhateverTheLocaleAndQtsOwnCodecStaysReachable) {
  UseUtf8ForNames();
  EXPECT_EQ(QFile::encodeName(QString::fromUtf8("/tmp/Gerät ☃")).toStdString(), "/tmp/Gerät ☃");
  EXPECT_EQ(QFile::decodeName("/tmp/Gerät ☃").toStdString(), "/tmp/Gerät ☃");
  const QTextCodec *codec = QTextCodec::codecForName("UTF-8");
  ASSERT_NE(codec, nullptr);
  EXPECT_EQ(codec->name().toStdString(), "UTF-8");
}

}  // namespace
}  // namespace ov
