#include "event/event_record.h"

#include <gtest/gtest.h>

#include <string>

namespace ov {
namespace {

TEST(EventRecordTest, IdOfSevenBytesIsKeptWhole) {
  EXPECT_EQ(EventIdText(MakeEventRecord("abcdefg", nullptr)), "abcdefg");
}

TEST(EventRecordTest, IdOfEightBytesLosesItsLast) {
  EXPECT_EQ(EventIdText(MakeEventRecord("abcdefgh", nullptr)), "abcdefg");
}

}  // namespace
}  // namespace ov
