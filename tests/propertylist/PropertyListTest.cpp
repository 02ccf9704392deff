#include "platform/PropertyList.h"

#include <gmock/gmock.h>

#include <bit>
#include <cmath>

#include "Documents.h"

namespace kv {
namespace {

TEST(Dictionary, KeepsItsOrderThroughChanges) {
  Dictionary dictionary{{"c", 1}, {"a", 2}, {"b", 3}};
  dictionary.set("a", "new");
  dictionary.set("d", 4);
  EXPECT_TRUE(dictionary.erase("c"));
  EXPECT_FALSE(dictionary.erase("c"));
  EXPECT_EQ(PropertyList(dictionary), PropertyList(Dictionary{{"a", "new"}, {"b", 3}, {"d", 4}}));
  EXPECT_NE(PropertyList(dictionary), PropertyList(Dictionary{{"b", 3}, {"a", "new"}, {"d", 4}}));
}

TEST(Dictionary, LetsTheLastOfEqualKeysWinInTheFirstOnesPlaceAtAnySize) {
  for (const int size : {3, 40, 5000}) {
    std::vector<PropertyList::Entry> entries;
    Dictionary expected;
    for (int index = 0; index < size; ++index) {
      entries.push_back({std::to_string(index * 7 % (size / 2 + 1)), index});
      expected.set(entries.back().key, index);
    }
    EXPECT_EQ(PropertyList(Dictionary::fromEntries(entries)), PropertyList(expected)) << size;
  }
}

TEST(PropertyList, DescribesItselfOnOneLine) {
  const std::pair<PropertyList, const char*> rows[] = {
      {Array{-5, 1.5, true, false, Array{}, "a", Data{0, 255}}, "(-5, 1.5, 1, 0, (), a, <00ff>)"},
      {Date::fromUnixSeconds(1709631000.75), "2024-03-05 09:30:00 +0000"},
      {Date::fromUnixSeconds(-0.5), "1969-12-31 23:59:59 +0000"},
      {Array{std::uint64_t{1} << 63, Date{Seconds(HUGE_VAL)}}, "(9223372036854775808, inf)"},
      {Dictionary{{"b", 1}, {"a", Dictionary{}}}, "{b = 1; a = {}}"},
  };
  for (const auto& [value, expected] : rows) EXPECT_EQ(value.description(), expected);
}

std::optional<PropertyList> roundTrip(const PropertyList& value, PropertyListEncoding encoding) {
  return readPropertyList(writePropertyList(value, encoding));
}

TEST(Writers, TakeMoreThanSmallReferencesReach) {
  // More than 65,536 objects and more bytes than three-byte offsets reach.
  std::vector<PropertyList::Entry> entries;
  for (int index = 0; index < 70'000; ++index) {
    entries.push_back({std::to_string(index), Data(240, static_cast<std::uint8_t>(index))});
  }
  const PropertyList wide = Dictionary::fromUniqueEntries(std::move(entries));
  EXPECT_TRUE(roundTrip(wide, kXml) == wide);
  EXPECT_TRUE(roundTrip(wide, kBinary) == wide);
}

TEST(Writers, KeepEveryBitAndWriteEqualStringsOnce) {
  for (const std::uint64_t bits : {0x7FF8000000000123ull, 0x8000000000000000ull, 1ull}) {
    const auto number = std::bit_cast<double>(bits);
    const PropertyList value = Array{number, Date{Seconds(number)}};
    const std::string document = writePropertyList(value, kBinary);
    EXPECT_THAT(document, testing::HasSubstr("\x23" + bigEndian(bits, 8)));
    EXPECT_THAT(document, testing::HasSubstr("\x33" + bigEndian(bits, 8)));
    EXPECT_EQ(writePropertyList(roundTrip(value, kBinary).value(), kBinary), document);
  }
  const std::string text(1000, 's');
  const PropertyList value = Array{text, Dictionary{{text, text}}, text};
  EXPECT_LT(writePropertyList(value, kBinary).size(), 2 * text.size());
}

TEST(Writers, GiveXmlItsUsualShape) {
  const PropertyList value =
      Dictionary{{"a<b", "1 & 2\r\n"}, {"list", Array{Date{}, Data{1, 2}, 0.1, true, Array{}}}};
  EXPECT_THAT(
      writePropertyList(value, kXml),
      testing::EndsWith(
          "<plist version=\"1.0\">\n<dict>\n\t<key>a&lt;b</key>\n"
          "\t<string>1 &amp; 2&#13;\n</string>\n\t<key>list</key>\n\t<array>\n"
          "\t\t<date>2001-01-01T00:00:00Z</date>\n\t\t<data>\n\t\tAQI=\n\t\t</data>\n"
          "\t\t<real>0.1</real>\n\t\t<true/>\n\t\t<array/>\n\t</array>\n</dict>\n</plist>\n"));
}

TEST(Writers, StayReadableWhateverTheTreeHolds) {
  const std::string nul(1, '\0');
  const struct {
    PropertyList value, xml, binary;
  } rows[] = {
      {"a" + nul, "a\uFFFD", "a\uFFFD"},
      {"\x01\x1F\uFFFE", "\uFFFD\uFFFD\uFFFD", "\x01\x1F\uFFFE"},
      {"\xC3(\xED\xA0\x80", "\uFFFD(\uFFFD\uFFFD\uFFFD", "\uFFFD(\uFFFD\uFFFD\uFFFD"},
      {Dictionary{{nul, 1}}, Dictionary{{"\uFFFD", 1}}, Dictionary{{"\uFFFD", 1}}},
      {Uid{7}, Dictionary{{"CF$UID", 7}}, Uid{7}},
      {Date{Seconds(-0.25)}, Date{Seconds(-1)}, Date{Seconds(-0.25)}},
      {Date{Seconds(-1e11)}, Date{Seconds(-1e11)}, Date{Seconds(-1e11)}},
  };
  for (const auto& row : rows) {
    EXPECT_EQ(roundTrip(row.value, kXml), row.xml);
    EXPECT_EQ(roundTrip(row.value, kBinary), row.binary);
  }
  for (const double seconds : {std::nan(""), HUGE_VAL, -HUGE_VAL, 1e17, -1e17}) {
    const auto back = roundTrip(Date{Seconds(seconds)}, kXml);
    EXPECT_TRUE(back && back->as<Date>()) << seconds;
  }
}

}  // namespace
}  // namespace kv
