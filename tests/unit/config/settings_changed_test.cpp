#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <functional>
#include <string>
#include <string_view>
#include <vector>

#include "config/settings_fixture.h"

namespace ov {
namespace {

// --- The check for changes ---------------------------------------------------------------------

TEST_F(SettingsTest, UnchangedFileIsNoChange) {
  Parse("port=1\n");
  EXPECT_FALSE(Changed());
}

TEST_F(SettingsTest, ChangedValueIsAChange) {
  Parse("port=1\n");
  Changed();
  Write("port=2\n");
  EXPECT_TRUE(Changed());
}

TEST_F(SettingsTest, ChangeBeforeTheFirstCheckIsAChange) {
  Parse("port=1\n");
  Write("port=2\n");
  EXPECT_TRUE(Changed());
}

TEST_F(SettingsTest, AddedKeyIsAChange) {
  Parse("port=1\n");
  Write("port=1\nhost=collector\n");
  EXPECT_TRUE(Changed());
}

TEST_F(SettingsTest, RemovedKeyIsAChange) {
  Parse("port=1\nhost=collector\n");
  Write("port=1\n");
  EXPECT_TRUE(Changed());
}

TEST_F(SettingsTest, RenamedKeyIsAChange) {
  Parse("port=1\n");
  Write("perfMon=1\n");
  EXPECT_TRUE(Changed());
}

TEST_F(SettingsTest, ChangeOfAnUnknownKeyIsAChange) {
  Parse("nonsense=1\n");
  Write("nonsense=2\n");
  EXPECT_TRUE(Changed());
}

TEST_F(SettingsTest, TouchedFileIsNoChange) {
  Parse("port=1\n");
  Changed();
  SetModificationTime(kSettingsPath, kSomeTime + 1000);
  EXPECT_FALSE(Changed());
}

TEST_F(SettingsTest, OtherOrderAndCommentsAreNoChange) {
  Parse("port=1\nhost=collector\n");
  Write("; a comment\nhost = collector\nport = 1\n");
  EXPECT_FALSE(Changed());
}

TEST_F(SettingsTest, ChangeIsReportedOnce) {
  Parse("port=1\n");
  Write("port=2\n");
  Changed();
  EXPECT_FALSE(Changed());
}

TEST_F(SettingsTest, ParsedChangeIsNoChangeAnyMore) {
  Parse("port=1\n");
  Changed();
  Parse("port=2\n");
  EXPECT_FALSE(Changed());
}

TEST_F(SettingsTest, ChangeWithinTheSecondAlreadySeenIsNotNoticed) {
  Parse("port=1\n");
  WriteAt("port=1\n", kSomeTime);
  Changed();
  WriteAt("port=22\n", kSomeTime, 999'999'999);
  EXPECT_FALSE(Changed());
}

TEST_F(SettingsTest, ChangeWithinTheSecondAlreadySeenIsNoticedOnceTheTimeMoves) {
  Parse("port=1\n");
  WriteAt("port=1\n", kSomeTime);
  Changed();
  WriteAt("port=22\n", kSomeTime, 999'999'999);
  Changed();
  SetModificationTime(kSettingsPath, kSomeTime + 1);
  EXPECT_TRUE(Changed());
}

TEST_F(SettingsTest, TouchMovesTheTimeThatIsRemembered) {
  Parse("port=1\n");
  SetModificationTime(kSettingsPath, kSomeTime + 1000);
  Changed();
  WriteAt("port=22\n", kSomeTime + 1000);
  EXPECT_FALSE(Changed());
}

TEST_F(SettingsTest, ReportedChangeMovesTheTimeThatIsRemembered) {
  Parse("port=1\n");
  WriteAt("port=22\n", kSomeTime + 1000);
  Changed();
  WriteAt("port=333\n", kSomeTime + 1000);
  EXPECT_FALSE(Changed());
}

TEST_F(SettingsTest, ParsingDoesNotMoveTheTimeThatIsRemembered) {
  WriteAt("port=1\n", kSomeTime);
  Parse();
  Changed();
  WriteAt("port=22\n", kSomeTime + 5);
  Parse();
  WriteAt("port=333\n", kSomeTime);
  EXPECT_FALSE(Changed());
}

TEST_F(SettingsTest, FileWithAnOlderTimeIsLookedAtToo) {
  Parse("port=1\n");
  Changed();
  WriteAt("port=2\n", 1000);
  EXPECT_TRUE(Changed());
}

TEST_F(SettingsTest, MissingFileIsNoChange) {
  Parse();
  EXPECT_FALSE(Changed());
}

TEST_F(SettingsTest, RemovedFileIsNoChange) {
  Parse("port=1\n");
  Changed();
  std::remove(kSettingsPath);
  EXPECT_FALSE(Changed());
}

TEST_F(SettingsTest, AppearingFileIsAChange) {
  Parse();
  Changed();
  Write("port=1\n");
  EXPECT_TRUE(Changed());
}

TEST_F(SettingsTest, AppearingEmptyFileIsNoChange) {
  Parse();
  Write("");
  EXPECT_FALSE(Changed());
}

TEST_F(SettingsTest, CheckAppliesNothing) {
  Parse("port=1\n");
  Write("port=2\n");
  Changed();
  EXPECT_EQ(settings_.port(), 1);
}

TEST_F(SettingsTest, CheckPrintsNothing) {
  Parse("port=1\n");
  Write("port=2\n");
  EXPECT_EQ(OutputOf([this] { Changed(); }), (Output{"", ""}));
}

}  // namespace
}  // namespace ov
