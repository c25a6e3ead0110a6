#include "event/event_record.h"

#include <gtest/gtest.h>

#include <array>
#include <cstring>
#include <ctime>
#include <limits>
#include <new>
#include <string>

#include "support/output.h"

namespace ov {
namespace {

std::string ImageOf(const EventRecord &record) {
  return {reinterpret_cast<const char *>(&record), sizeof(record)};
}

// Two neighbouring records without a zero byte, the second there to be run into.
using Pair = std::array<EventRecord, 2>;

Pair MakePairWithoutNul() {
  Pair records;
  std::memset(static_cast<void *>(&records), 'x', sizeof(records));
  return records;
}

// Makes the record where no byte was zero before.
std::string ImageMadeInUsedMemory(const char *id, const char *values) {
  alignas(EventRecord) std::array<char, kEventRecordSize> memory;
  memory.fill('x');
  auto *record = new (memory.data()) EventRecord(MakeEventRecord(id, values));
  record->time = 0;
  return ImageOf(*record);
}

TEST(EventRecordTest, IdOfSevenBytesIsKeptWhole) {
  EXPECT_EQ(EventIdText(MakeEventRecord("abcdefg", nullptr)), "abcdefg");
}

TEST(EventRecordTest, IdOfEightBytesLosesItsLast) {
  EXPECT_EQ(EventIdText(MakeEventRecord("abcdefgh", nullptr)), "abcdefg");
}

TEST(EventRecordTest, LongIdDoesNotReachTheValues) {
  EXPECT_EQ(ImageMadeInUsedMemory("abcdefghijklmnop", nullptr),
            "abcdefg" + std::string(kEventRecordSize - 7, '\0'));
}

TEST(EventRecordTest, IdIsCutAtBytesNotCharacters) {
  EXPECT_EQ(EventIdText(MakeEventRecord("abcdefü", nullptr)), "abcdef\xC3");
}

TEST(EventRecordTest, ValuesOf127BytesAreKeptWhole) {
  const std::string values(127, 'v');
  EXPECT_EQ(EventValuesText(MakeEventRecord("perf01", values.c_str())), values);
}

TEST(EventRecordTest, ValuesOf128BytesLoseTheirLast) {
  const std::string values = std::string(127, 'v') + 'w';
  EXPECT_EQ(EventValuesText(MakeEventRecord("perf01", values.c_str())), std::string(127, 'v'));
}

TEST(EventRecordTest, LongValuesDoNotReachTheTime) {
  const std::string values(1000, 'v');
  EXPECT_EQ(ImageMadeInUsedMemory("perf01", values.c_str()),
            std::string("perf01\0\0", 8) + std::string(127, 'v') + std::string(9, '\0'));
}

TEST(EventRecordTest, BytesAfterTheTextsAreZero) {
  EXPECT_EQ(ImageMadeInUsedMemory("perf01", "95,80"),
            std::string("perf01\0\0", 8) + "95,80" + std::string(123 + 8, '\0'));
}

TEST(EventRecordTest, EveryByteOfTheValuesIsZeroWithoutValues) {
  EXPECT_EQ(ImageMadeInUsedMemory("perf01", nullptr),
            "perf01" + std::string(kEventRecordSize - 6, '\0'));
}

TEST(EventRecordTest, EmptyTextsGiveARecordOfZeros) {
  EXPECT_EQ(ImageMadeInUsedMemory("", ""), std::string(144, '\0'));
}

TEST(EventRecordTest, FieldsLieAtTheirPlacesInTheHostsByteOrder) {
  EventRecord record = MakeEventRecord("sys05", "a,b");
  record.time = 0x0102030405060708;
  std::string time(8, '\0');
  std::memcpy(time.data(), &record.time, 8);
  EXPECT_EQ(ImageOf(record), std::string("sys05\0\0\0", 8) + "a,b" + std::string(125, '\0') + time);
}

TEST(EventRecordTest, TimeIsThatOfTheSystemClock) {
  const std::int64_t before = std::time(nullptr);
  const std::int64_t made = MakeEventRecord("perf01", nullptr).time;
  const std::int64_t after = std::time(nullptr);
  EXPECT_TRUE(before <= made && made <= after) << before << " " << made << " " << after;
}

TEST(EventRecordTest, ClearSetsAll144BytesToZero) {
  Pair records = MakePairWithoutNul();
  ClearEventRecord(records[0]);
  EXPECT_EQ(ImageOf(records[0]), std::string(144, '\0'));
}

TEST(EventRecordTest, ClearLeavesTheBytesBehindTheRecord) {
  Pair records = MakePairWithoutNul();
  ClearEventRecord(records[0]);
  EXPECT_EQ(ImageOf(records[1]), std::string(144, 'x'));
}

TEST(EventRecordTest, IdWithoutNulRunsOnIntoTheValues) {
  EventRecord record = MakeEventRecord("", "95,80");
  record.id.fill('i');
  EXPECT_EQ(EventIdText(record), "iiiiiiii95,80");
}

TEST(EventRecordTest, IdRunsOnToTheRecordsLastByteAndNoFurther) {
  const Pair records = MakePairWithoutNul();
  EXPECT_EQ(EventIdText(records[0]), std::string(144, 'x'));
}

TEST(EventRecordTest, ValuesWithoutNulRunOnIntoTheTime) {
  EventRecord record = MakeEventRecord("perf01", nullptr);
  record.values.fill('v');
  std::memcpy(&record.time, "time\0\0\0\0", 8);
  EXPECT_EQ(EventValuesText(record), std::string(128, 'v') + "time");
}

TEST(EventRecordTest, ValuesRunOnToTheRecordsLastByteAndNoFurther) {
  const Pair records = MakePairWithoutNul();
  EXPECT_EQ(EventValuesText(records[0]), std::string(136, 'x'));
}

std::string Printed(const EventRecord &record) {
  const Output output = OutputOf([&] { PrintEventRecord(record); });
  EXPECT_EQ(output.err, "");
  return output.out;
}

TEST(EventRecordTest, PrintsIdValuesAndTime) {
  EventRecord record = MakeEventRecord("perf01", "95,80");
  record.time = 1700000000;
  EXPECT_EQ(Printed(record), "Event [perf01] (95,80) at 1700000000\n");
}

TEST(EventRecordTest, PrintsEmptyBracketsWithoutValues) {
  EventRecord record = MakeEventRecord("sys05", nullptr);
  record.time = 7;
  EXPECT_EQ(Printed(record), "Event [sys05] () at 7\n");
}

TEST(EventRecordTest, PrintsNegativeTimeAsUnsignedNumber) {
  EventRecord record = MakeEventRecord("sys05", nullptr);
  record.time = -1;
  EXPECT_EQ(Printed(record), "Event [sys05] () at 18446744073709551615\n");
}

TEST(EventRecordTest, PrintsTheLargestTime) {
  EventRecord record = MakeEventRecord("sys05", nullptr);
  record.time = std::numeric_limits<std::int64_t>::max();
  EXPECT_EQ(Printed(record), "Event [sys05] () at 9223372036854775807\n");
}

TEST(EventRecordTest, PrintsPercentSignsAsTheyAre) {
  EventRecord record = MakeEventRecord("%s%n", "100%,%d");
  record.time = 7;
  EXPECT_EQ(Printed(record), "Event [%s%n] (100%,%d) at 7\n");
}

TEST(EventRecordTest, PrintsARecordWithoutNulToItsEnd) {
  const Pair records = MakePairWithoutNul();
  EXPECT_EQ(Printed(records[0]), "Event [" + std::string(144, 'x') + "] (" + std::string(136, 'x') +
                                     ") at 8680820740569200760\n");
}

}  // namespace
}  // namespace ov
