#include <gmock/gmock.h>

#include <cmath>
#include <limits>

#include "Documents.h"
#include "platform/PropertyListReader.h"

namespace kv {
namespace {

using namespace std::string_literals;
using Array = PropertyList::Array;
using Data = PropertyList::Data;
using Dictionary = PropertyList::Dictionary;
using Uid = PropertyList::Uid;

const std::nullopt_t kRefused = std::nullopt;

std::optional<PropertyList> read(const BinaryDocument& document) {
  return readPropertyList(document.bytes());
}

struct ObjectCase {
  std::string object;
  std::optional<PropertyList> expected;
};

const ObjectCase kObjectCases[] = {
    {"\x08"s, false},
    {"\x09"s, true},
    {"\x00"s, kRefused},  // null
    {"\x0F"s, kRefused},  // fill

    {"\x10\xFF"s, 255},
    {"\x11\xFF\xFE"s, 0xFFFE},
    {"\x12\xFF\xFF\xFF\xFF"s, std::int64_t{0xFFFFFFFF}},
    {"\x13\xFF\xFF\xFF\xFF\xFF\xFF\xFF\xFE"s, -2},
    {"\x14"s + bigEndian(0, 8) + bigEndian(~0ull, 8), std::numeric_limits<std::uint64_t>::max()},
    {"\x14"s + bigEndian(1, 8) + bigEndian(0, 8), std::numeric_limits<std::uint64_t>::max()},
    {"\x14"s + bigEndian(~0ull, 8) + bigEndian(~6ull, 8), -7},
    {"\x14"s + bigEndian(~0ull, 8) + bigEndian(0, 8), std::numeric_limits<std::int64_t>::min()},
    {"\x15"s + std::string(32, '\0'), kRefused},

    {"\x22\x3F\x80\x00\x00"s, 1.0},
    {"\x23"s + bigEndian(0x3FB999999999999A, 8), 0.1},
    {"\x21\x3C\x00"s, kRefused},
    {"\x33"s + bigEndian(0x3FE0000000000000, 8), Date{Seconds(0.5)}},
    {"\x33"s + bigEndian(0x7FF0000000000000, 8), Date{Seconds(HUGE_VAL)}},
    {"\x32\x3F\x80\x00\x00"s, kRefused},

    {"\x40"s, Data{}},
    {"\x42\x00\xFF"s, Data{0, 255}},
    {"\x4F\x10\x0F"s + std::string(15, 'd'), Data(15, 'd')},
    {"\x4F\x13"s + bigEndian(1, 8) + "d", Data{'d'}},
    {"\x4F\x14"s + bigEndian(1, 16) + "d", kRefused},
    {"\x4F\x09"s, kRefused},

    {"\x50"s, ""},
    {"\x52hi"s, "hi"},
    {"\x52h\x00"s, kRefused},
    {"\x52h\xE9"s, kRefused},
    {"\x61\x00\xE9"s, "\u00E9"},
    {"\x63\x20\xAC\xD8\x35\xDD\x62"s, "\u20AC\U0001D562"},
    {"\x61\x00\x00"s, kRefused},
    {"\x62\xD8\x35\x00\x41"s, kRefused},
    {"\x61\xD8\x35"s, kRefused},
    {"\x61\xDD\x62"s, kRefused},
    {"\x71\x61"s, kRefused},

    {"\x80\x07"s, Uid{7}},
    {"\x87"s + bigEndian(std::uint64_t{1} << 32, 8), Uid{std::uint64_t{1} << 32}},
    {"\x8F"s + bigEndian(9, 16), Uid{9}},
    {"\x88\x01"s + bigEndian(0, 8), kRefused},

    {"\xA0"s, Array{}},
    {"\xC0"s, kRefused},  // set
    {"\xD0"s, Dictionary{}},
};

TEST(BinaryReader, ReadsEachObjectOrRefusesTheDocument) {
  for (const ObjectCase& row : kObjectCases) {
    EXPECT_EQ(read({{row.object}}), row.expected) << testing::PrintToString(row.object);
  }
}

TEST(BinaryReader, ReadsContainersAndSharedObjects) {
  using B = BinaryDocument;
  const BinaryDocument document{
      {B::array({1, 1, 4}), B::dictionary({2, 3}, {4, 5}), B::text("z"), B::text("a"), "\x09",
       B::array({2, 2})},
  };
  const Dictionary dictionary{{"z", true}, {"a", Array{"z", "z"}}};
  EXPECT_EQ(read(document), PropertyList(Array{dictionary, dictionary, true}));
}

TEST(BinaryReader, LetsTheLastOfEqualKeysWinInTheFirstOnesPlace) {
  using B = BinaryDocument;
  const BinaryDocument document{
      {B::dictionary({1, 2, 3}, {4, 4, 5}), B::text("k"), B::text("l"), B::text("k"), "\x09",
       "\x08"},
  };
  EXPECT_EQ(read(document), PropertyList(Dictionary{{"k", false}, {"l", true}}));
}

TEST(BinaryReader, TakesOffsetsAndReferencesOfEverySize) {
  for (std::size_t size = 1; size <= 8; ++size) {
    const std::string array = "\xA2" + bigEndian(1, size) + bigEndian(2, size);
    EXPECT_EQ(
        read({.objects = {array, "\x09", "\x51x"}, .offsetBytes = size, .referenceBytes = size}),
        PropertyList(Array{true, "x"}))
        << size;
  }
}

TEST(BinaryReader, RefusesWhatDoesNotFitTheFile) {
  using B = BinaryDocument;
  constexpr std::uint64_t kHuge = std::uint64_t{1} << 61;  // times eight it is nothing
  const BinaryDocument documents[] = {
      {.objects = {"\x09"}, .topObject = 1},
      {.objects = {"\x09"}, .topObject = ~0ull},
      {.objects = {"\x09"}, .offsetBytes = 0},
      {.objects = {"\x09"}, .offsetBytes = 9},
      {.objects = {"\x09"}, .referenceBytes = 0},
      {.objects = {"\x09"}, .referenceBytes = 255},
      {.objects = {"\x09"}, .extraCount = 1},
      {.objects = {"\x09"}, .offsetBytes = 8, .extraCount = kHuge},
      {.objects = {"\x09"}, .extraCount = ~0ull - 1},
      {.objects = {"\x09"}, .extraTableOffset = 1},
      {.objects = {"\x09"}, .extraTableOffset = ~0ull - 8},
      {.objects = {"\x09"}, .extraOffset = 1000},
      {.objects = {"\x09"}, .extraOffset = 0 - std::uint64_t{8}},  // the header is no object
      {.objects = {"\x09"}, .offsetBytes = 8, .extraOffset = ~0ull - 8},
      {.objects = {B::array({1})}},
      {.objects = {B::dictionary({0}, {0})}},
      {.objects = {B::dictionary({1}, {1}), "\x10\x01"}},
      {.objects = {B::dictionary({1}, {2}), "\x51\0"s, "\x09"}},
      {.objects = {"\x4F\x13" + bigEndian(~0ull, 8)}},
      {.objects = {"\x5F\x12" + bigEndian(0x7FFFFFFF, 4)}},
      {.objects = {"\x6F\x13" + bigEndian(std::uint64_t{1} << 63, 8)}},
      {.objects = {"\xAF\x13" + bigEndian(kHuge, 8)}, .referenceBytes = 8},
      {.objects = {"\xDF\x13" + bigEndian(kHuge / 2, 8)}, .referenceBytes = 8},
      {.objects = {B::array({0})}},
      {.objects = {B::array({1}), B::dictionary({2}, {0}), B::text("loop")}},
  };
  for (const BinaryDocument& document : documents) {
    EXPECT_EQ(read(document), kRefused) << testing::PrintToString(document.bytes());
  }
  for (const std::string& cutOff : {"\x13\0"s, "\x23\0"s, "\x33\0"s, "\x4F"s, "\x4F\x13\0"s,
                                    "\x51"s, "\x61\0"s, "\x87\0"s, "\xA1\0"s}) {
    // The table before the object, so that only the trailer follows.
    const std::string document = "bplist00\x09" + cutOff + std::string(6, '\0') + "\x01\x02" +
                                 bigEndian(1, 8) + bigEndian(0, 8) + bigEndian(8, 8);
    EXPECT_EQ(readPropertyList(document), kRefused) << testing::PrintToString(cutOff);
  }
  EXPECT_EQ(readPropertyList("bplist00"), kRefused);
  EXPECT_EQ(readPropertyList("bplist00" + std::string(32, '\0')), kRefused);
  std::string otherVersion = BinaryDocument{{"\x09"}}.bytes();
  otherVersion[7] = '1';
  EXPECT_EQ(readPropertyList(otherVersion), kRefused);
}

}  // namespace
}  // namespace kv
