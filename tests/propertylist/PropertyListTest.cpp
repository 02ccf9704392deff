#include "platform/PropertyList.h"

#include <gmock/gmock.h>

#include "Documents.h"

namespace kv {
namespace {

using Dictionary = PropertyList::Dictionary;
using Entry = PropertyList::Entry;

TEST(Dictionary, KeepsItsOrderThroughChanges) {
  Dictionary dictionary{{"c", 1}, {"a", 2}, {"b", 3}};
  dictionary.set("a", "new");
  dictionary.set("d", 4);
  EXPECT_TRUE(dictionary.erase("c"));
  EXPECT_FALSE(dictionary.erase("c"));
  EXPECT_EQ(dictionary.find("c"), nullptr);
  EXPECT_EQ(PropertyList(dictionary), PropertyList(Dictionary{{"a", "new"}, {"b", 3}, {"d", 4}}));
  EXPECT_NE(PropertyList(dictionary), PropertyList(Dictionary{{"b", 3}, {"a", "new"}, {"d", 4}}));
}

TEST(Dictionary, LetsTheLastOfEqualKeysWinInTheFirstOnesPlaceAtAnySize) {
  for (const int size : {3, 40, 5000}) {
    std::vector<Entry> entries;
    Dictionary expected;
    for (int index = 0; index < size; ++index) {
      const std::string key = std::to_string(index * 7 % (size / 2 + 1));
      entries.push_back({key, index});
      expected.set(key, index);
    }
    EXPECT_EQ(PropertyList(Dictionary::fromEntries(entries)), PropertyList(expected)) << size;
  }
}

TEST(PropertyList, HoldsUnsignedIntegersOnlyBeyondTheSignedRange) {
  constexpr std::uint64_t kLargestSigned = std::numeric_limits<std::int64_t>::max();
  EXPECT_NE(PropertyList(kLargestSigned).as<std::int64_t>(), nullptr);
  EXPECT_NE(PropertyList(kLargestSigned + 1).as<std::uint64_t>(), nullptr);
}

TEST(PropertyList, DescribesItselfOnOneLine) {
  const std::pair<PropertyList, const char*> rows[] = {
      {"as it stands", "as it stands"},
      {-5, "-5"},
      {std::uint64_t{1} << 63, "9223372036854775808"},
      {1.5, "1.5"},
      {true, "1"},
      {false, "0"},
      {Date::fromUnixSeconds(1709631000.75), "2024-03-05 09:30:00 +0000"},
      {Date::fromUnixSeconds(-0.5), "1969-12-31 23:59:59 +0000"},
      {Date{Seconds(HUGE_VAL)}, "inf"},
      {PropertyList::Data{0, 255}, "<00ff>"},
      {PropertyList::Array{1, "a", PropertyList::Array{}}, "(1, a, ())"},
      {Dictionary{{"b", 1}, {"a", Dictionary{}}}, "{b = 1; a = {}}"},
  };
  for (const auto& [value, expected] : rows) EXPECT_EQ(value.description(), expected);
}

}  // namespace
}  // namespace kv
