#include "scheduler/FieldReaders.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <limits>

#include "scheduler/TaskRecord.h"
#include "tests/support/Task.h"

namespace kv::test {
namespace {

constexpr auto kMost = std::numeric_limits<std::int64_t>::max();
constexpr auto kLeast = std::numeric_limits<std::int64_t>::min();

struct ReadingCase {
  PropertyList value;
  std::int64_t integer;
  bool truth;
};

TEST(FieldReaders, ReadNumbersAndTextAlike) {
  const ReadingCase cases[] = {
      {5, 5, true},
      {0, 0, false},
      {-3, -3, true},
      {true, 1, true},
      {false, 0, false},
      {1.9, 1, true},
      {-1.9, -1, true},
      {0.5, 0, true},  // no integer part, yet not zero
      {-0.0, 0, false},
      {1e300, kMost, true},
      {-1e300, kLeast, true},
      {9223372036854775808.0, kMost, true},
      {-9223372036854775808.0, kLeast, true},
      {HUGE_VAL, kMost, true},
      {std::nan(""), 0, true},
      {std::uint64_t{1} << 63, kMost, true},
      {"", 0, false},
      {"1", 1, true},
      {"05", 5, true},
      {" \t\n12 boxes", 12, true},
      {"+7", 7, true},
      {"-7", -7, true},
      {"+-7", 0, false},
      {"- 7", 0, false},
      {"--7", 0, false},
      {"1.9", 1, true},
      {"0x10", 0, false},
      {"00", 0, false},
      {"99999999999999999999", kMost, true},
      {"-99999999999999999999", kLeast, true},
      {"YES", 0, true},
      {"yes", 0, true},
      {"true", 0, true},
      {"Tuesday", 0, true},
      {"NO", 0, false},
      {"off", 0, false},
      {"  -00y", 0, true},
      {"+0 1", 0, false},
      {"\xC3\xBF", 0, false},
      {Date{}, 0, false},
      {PropertyList::Data{1}, 0, false},
      {PropertyList::Uid{1}, 0, false},
      {PropertyList::Array{1}, 0, false},
      {PropertyList::Dictionary{}, 0, false},
  };
  for (const auto& [value, integer, truth] : cases) {
    EXPECT_EQ(integerValue(&value), integer) << value.description();
    EXPECT_EQ(truthValue(&value), truth) << value.description();
    EXPECT_EQ(storedDay(&value), std::to_string(integer)) << value.description();
  }
  EXPECT_EQ(integerValue(nullptr), 0);
  EXPECT_FALSE(truthValue(nullptr));
  EXPECT_EQ(storedDay(nullptr), "0");
}

TEST(FieldReaders, TakeOnlyFiniteDatesForDates) {
  const PropertyList date(Date{Seconds(5)});
  const PropertyList never(Date{Seconds(std::nan(""))});
  const PropertyList text("2024-03-05");
  EXPECT_EQ(dateValue(&date), Date{Seconds(5)});
  EXPECT_EQ(dateValue(&never), std::nullopt);
  EXPECT_EQ(dateValue(&text), std::nullopt);
  EXPECT_EQ(dateValue(nullptr), std::nullopt);
}

TEST(TaskRecord, NamesTypesByOneUnsignedComparison) {
  const std::pair<std::int64_t, const char*> cases[] = {
      {0, "Daily"},       {1, "Weekly"},
      {2, "Hour"},        {3, "Minute"},
      {4, "Daily?"},      {-1, "Daily?"},
      {7, "Daily?"},      {kMost, "Daily?"},
      {kLeast, "Daily?"}, {std::int64_t{1} << 32, "Daily?"},
  };
  for (const auto& [type, name] : cases) EXPECT_STREQ(TaskRecord::typeName(type), name) << type;
}

TEST(TaskRecord, HasNoFieldsWhereThereAreNone) {
  const PropertyList::Dictionary oddOptions{{"backupset", "Docs"}, {"schopts", "scheduleIt"}};
  for (const PropertyList& entry :
       {PropertyList("text"), PropertyList(PropertyList::Array{1}), PropertyList(oddOptions)}) {
    const TaskRecord record(entry);
    EXPECT_FALSE(record.isScheduled());
    EXPECT_TRUE(record.mayRun());
    EXPECT_EQ(record.destinationPath(), nullptr);
    EXPECT_EQ(record.nextDue(), std::nullopt);
  }
}

}  // namespace
}  // namespace kv::test
