#include "event/event_record.h"

#include <cstring>
#include <ctime>
#include <limits>
#include <new>

#include "support/support.h"

namespace ov {
namespace {

std::string ImageOf(const EventRecord &record) {
  return {reinterpret_cast<const char *>(&record), sizeof(record)};
}

// --- Making ------------------------------------------------------------------------------------

struct MakeRow : Row {
  std::string id;
  const char *values;  // may be null
  std::string keptId;
  std::string keptValues;
};

class MadeRecord : public testing::TestWithParam<MakeRow> {};

// Made where no byte was zero before.
TEST_P(MadeRecord, HoldsTheTextsAndZerosBehindThem) {
  alignas(EventRecord) std::array<char, 144> memory;
  memory.fill('x');
  auto *record =
      new (memory.data()) EventRecord(MakeEventRecord(GetParam().id.c_str(), GetParam().values));
  std::memcpy(&record->time, "the time", 8);
  std::string id = GetParam().keptId;
  std::string values = GetParam().keptValues;
  id.resize(8);
  values.resize(128);
  EXPECT_EQ(ImageOf(*record), id + values + "the time");
}

const std::string kValues(127, 'v');
const std::string kLongValues = kValues + std::string(900, 'w');

const MakeRow kMadeRecordRows[] = {
    {"IdOfSevenBytesIsKeptWhole", "abcdefg", "95,80", "abcdefg", "95,80"},
    {"IdOfEightBytesLosesItsLast", "abcdefgh", "95,80", "abcdefg", "95,80"},
    {"LongIdDoesNotReachTheValues", "abcdefghijklmnop", nullptr, "abcdefg", ""},
    {"IdIsCutAtBytesNotCharacters", "abcdefü", "", "abcdef\xC3", ""},
    {"ValuesOf127BytesAreKeptWhole", "sys05", kValues.c_str(), "sys05", kValues},
    {"ValuesAreCutTo127Bytes", "sys05", kLongValues.c_str(), "sys05", kValues},
    {"NoValuesAreEmptyValues", "sys05", nullptr, "sys05", ""},
    {"EmptyTextsGiveZeros", "", "", "", ""}};

INSTANTIATE_TEST_SUITE_P(Rows, MadeRecord, testing::ValuesIn(kMadeRecordRows), OutcomeOf());

TEST(EventRecordTest, TimeIsThatOfTheSystemClock) {
  const std::int64_t before = std::time(nullptr);
  const std::int64_t made = MakeEventRecord("perf01", nullptr).time;
  const std::int64_t after = std::time(nullptr);
  EXPECT_TRUE(before <= made && made <= after) << before << " " << made << " " << after;
}

// --- Reading and clearing ----------------------------------------------------------------------

// Two neighbouring records without a zero byte, the second there to be run into.
std::array<EventRecord, 2> RecordsWithoutNul() {
  std::array<EventRecord, 2> records;
  std::memset(static_cast<void *>(&records), 'x', sizeof(records));
  return records;
}

TEST(EventRecordTest, ClearSetsAll144BytesToZeroAndNoOther) {
  std::array<EventRecord, 2> records = RecordsWithoutNul();
  ClearEventRecord(records[0]);
  EXPECT_EQ(ImageOf(records[0]) + ImageOf(records[1]),
            std::string(144, '\0') + std::string(144, 'x'));
}

TEST(EventRecordTest, TextsWithoutNulRunOnIntoTheNextFieldUpToTheEndOfTheRecord) {
  EventRecord record = MakeEventRecord("", "95,80");
  record.id.fill('i');
  EXPECT_EQ(EventIdText(record), "iiiiiiii95,80");
  record.values.fill('v');
  std::memcpy(&record.time, "time\0\0\0\0", 8);
  EXPECT_EQ(EventValuesText(record), std::string(128, 'v') + "time");
  const std::array<EventRecord, 2> records = RecordsWithoutNul();
  EXPECT_EQ(EventIdText(records[0]), std::string(144, 'x'));
  EXPECT_EQ(EventValuesText(records[0]), std::string(136, 'x'));
}

// --- Printing ----------------------------------------------------------------------------------

TEST(EventRecordTest, RecordIsPrintedWithItsTimeAsAnUnsignedNumber) {
  const auto printed = [](const char *id, const char *values, std::int64_t time) {
    EventRecord record = MakeEventRecord(id, values);
    record.time = time;
    const Output output = OutputOf([&] { PrintEventRecord(record); });
    EXPECT_EQ(output.err, "");
    return output.out;
  };
  EXPECT_EQ(printed("perf01", "95,80", 1700000000), "Event [perf01] (95,80) at 1700000000\n");
  EXPECT_EQ(printed("sys05", nullptr, 7), "Event [sys05] () at 7\n");
  EXPECT_EQ(printed("sys05", "", -1), "Event [sys05] () at 18446744073709551615\n");
  EXPECT_EQ(printed("sys05", "", std::numeric_limits<std::int64_t>::max()),
            "Event [sys05] () at 9223372036854775807\n");
  EXPECT_EQ(printed("%s%n", "100%,%d", 7), "Event [%s%n] (100%,%d) at 7\n");
}

}  // namespace
}  // namespace ov
