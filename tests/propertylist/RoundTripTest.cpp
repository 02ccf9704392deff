#include <gmock/gmock.h>

#include <bit>
#include <cstdlib>
#include <limits>
#include <random>

#include "Documents.h"
#include "RandomPropertyList.h"
#include "platform/PropertyListReader.h"
#include "platform/PropertyListWriter.h"

namespace kv {
namespace {

using Array = PropertyList::Array;
using Dictionary = PropertyList::Dictionary;

constexpr PropertyListEncoding kXml = PropertyListEncoding::kXml;
constexpr PropertyListEncoding kBinary = PropertyListEncoding::kBinary;

/// KV_SEED in the environment repeats a run.
std::uint64_t seed() {
  const char* const given = std::getenv("KV_SEED");
  return given != nullptr ? std::strtoull(given, nullptr, 0) : std::random_device()();
}

class RoundTrip : public testing::TestWithParam<PropertyListEncoding> {};

INSTANTIATE_TEST_SUITE_P(Encodings, RoundTrip, testing::Values(kXml, kBinary),
                         [](const auto& test) { return test.param == kXml ? "Xml" : "Binary"; });

TEST_P(RoundTrip, GivesRandomTreesBack) {
  const std::uint64_t firstSeed = seed();
  for (std::uint64_t index = 0; index < 600; ++index) {
    const PropertyList tree = RandomPropertyList(firstSeed + index, GetParam()).tree();
    const std::string document = writePropertyList(tree, GetParam());
    ASSERT_EQ(propertyListEncoding(document), GetParam());
    ASSERT_EQ(readPropertyList(document), tree) << "KV_SEED=" << firstSeed + index;
  }
}

TEST_P(RoundTrip, GivesTheDeepestAndTheWidestBack) {
  PropertyList deep = "core";
  for (std::size_t level = 1; level < PropertyListLimits().depth; ++level) {
    deep = level % 2 == 0 ? PropertyList(Array{std::move(deep)})
                          : PropertyList(Dictionary{{"key", std::move(deep)}});
  }
  EXPECT_TRUE(readPropertyList(writePropertyList(deep, GetParam())) == deep);

  // More than 65,536 objects and more bytes than three-byte offsets reach.
  std::vector<PropertyList::Entry> entries;
  for (int index = 0; index < 70'000; ++index) {
    entries.push_back({"a key of some length " + std::to_string(index),
                       PropertyList::Data(240, static_cast<std::uint8_t>(index))});
  }
  const PropertyList wide = Dictionary::fromUniqueEntries(std::move(entries));
  EXPECT_TRUE(readPropertyList(writePropertyList(wide, GetParam())) == wide);
}

TEST(BinaryWriter, KeepsEveryBitOfDatesAndReals) {
  for (const std::uint64_t bits : {0x7FF8000000000123ull, 0x8000000000000000ull, 1ull}) {
    const auto number = std::bit_cast<double>(bits);
    const Array values{number, Date{Seconds(number)}};
    const auto back = readPropertyList(writePropertyList(values, kBinary));
    ASSERT_TRUE(back && back->as<Array>());
    const Array& read = *back->as<Array>();
    EXPECT_EQ(std::bit_cast<std::uint64_t>(*read[0].as<double>()), bits);
    EXPECT_EQ(std::bit_cast<std::uint64_t>(read[1].as<Date>()->sinceReference.count()), bits);
  }
}

TEST(BinaryWriter, WritesEqualStringsOnce) {
  const std::string text(1000, 's');
  const PropertyList value = Array{text, Dictionary{{text, text}}, text};
  EXPECT_LT(writePropertyList(value, kBinary).size(), 2 * text.size());
}

TEST(XmlWriter, WritesTheUsualShape) {
  const PropertyList value =
      Array{Dictionary{{"a<b", "1 & 2\r\n"}, {"when", Date::fromUnixSeconds(1709631000)}},
            PropertyList::Data{1, 2},
            0.1,
            -7,
            true,
            Array{}};
  const std::string document = writePropertyList(value, kXml);
  EXPECT_EQ(document.substr(document.find("<plist")),
            "<plist version=\"1.0\">\n"
            "<array>\n"
            "\t<dict>\n"
            "\t\t<key>a&lt;b</key>\n"
            "\t\t<string>1 &amp; 2&#13;\n</string>\n"
            "\t\t<key>when</key>\n"
            "\t\t<date>2024-03-05T09:30:00Z</date>\n"
            "\t</dict>\n"
            "\t<data>\n"
            "\tAQI=\n"
            "\t</data>\n"
            "\t<real>0.1</real>\n"
            "\t<integer>-7</integer>\n"
            "\t<true/>\n"
            "\t<array/>\n"
            "</array>\n"
            "</plist>\n");
}

TEST(Writers, StayReadableWhateverTheTreeHolds) {
  constexpr double kNan = std::numeric_limits<double>::quiet_NaN();
  const std::string nul(1, '\0');
  const struct {
    PropertyList value, xml, binary;
  } rows[] = {
      {"a" + nul, "a\uFFFD", "a\uFFFD"},
      {"\x01\x1F", "\uFFFD\uFFFD", "\x01\x1F"},
      {"\uFFFE", "\uFFFD", "\uFFFE"},
      {"\xC3(\xED\xA0\x80\xF4\x90\x80\x80\xE2\x82", "\uFFFD(" + repeated("\uFFFD", 9),
       "\uFFFD(" + repeated("\uFFFD", 9)},
      {Dictionary{{nul, 1}}, Dictionary{{"\uFFFD", 1}}, Dictionary{{"\uFFFD", 1}}},
      {PropertyList::Uid{7}, Dictionary{{"CF$UID", 7}}, PropertyList::Uid{7}},
      {Date{Seconds(1.75)}, Date{Seconds(1)}, Date{Seconds(1.75)}},
      {Date::fromUnixSeconds(-0.25), Date::fromUnixSeconds(-1), Date::fromUnixSeconds(-0.25)},
  };
  for (const auto& row : rows) {
    EXPECT_EQ(readPropertyList(writePropertyList(row.value, kXml)), row.xml);
    EXPECT_EQ(readPropertyList(writePropertyList(row.value, kBinary)), row.binary);
  }
  for (const double seconds : {kNan, HUGE_VAL, -HUGE_VAL, 1e17, -1e17}) {
    const auto back = readPropertyList(writePropertyList(Date{Seconds(seconds)}, kXml));
    EXPECT_TRUE(back && back->as<Date>()) << seconds;
  }
}

}  // namespace
}  // namespace kv
