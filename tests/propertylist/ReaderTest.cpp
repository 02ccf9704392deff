#include <gmock/gmock.h>

#include <cmath>
#include <limits>
#include <sstream>

#include "Documents.h"

namespace kv {
namespace {

using namespace std::string_literals;
using B = BinaryDocument;

constexpr auto kLeast = std::numeric_limits<std::int64_t>::min();
constexpr auto kMost = std::numeric_limits<std::uint64_t>::max();

const std::pair<const char*, PropertyList> kElements[] = {
    {"<string> a\tb\r\nc </string>", " a\tb\nc "},
    {"<string>&lt;&#169;&#x1D562;&amp;<![CDATA[<b>&]]><!-- no -->!</string>",
     "<\u00A9\U0001D562&<b>&!"},
    {"<array><integer> -12\n</integer><integer>+0x1Ff</integer></array>", Array{-12, 0x1FF}},
    {"<integer>9223372036854775807</integer>", std::numeric_limits<std::int64_t>::max()},
    {"<integer>9223372036854775808</integer>", std::uint64_t{1} << 63},
    {"<integer>99999999999999999999</integer>", kMost},
    {"<integer>-99999999999999999999</integer>", kLeast},
    {"<array><real>+.5e1</real><real> -1e400 </real><real>1e-400</real></array>",
     Array{5.0, -HUGE_VAL, 0.0}},
    {"<array><real>1e99999999999999999999</real><real>-infinity</real></array>",
     Array{HUGE_VAL, -HUGE_VAL}},
    {"<array> <true/><!-- c --><?pi x?>\n<array><false> </false></array></array>",
     Array{true, Array{false}}},
    {"<date>2024-02-29T09:30:05Z</date>", Date::fromUnixSeconds(1709199005)},
    {"<date>2024-03-05Z</date>", Date::fromUnixSeconds(1709596800)},
    {"<date>-0001-01-01T00Z</date>", Date::fromUnixSeconds(-62198755200)},
    {"<array><data/><data>\n\tAAEC\n\t/w==\n</data><data>YWI=</data></array>",
     Array{Data{}, Data{0, 1, 2, 255}, Data{'a', 'b'}}},
    {"<dict><key>b</key><true/><key/><dict><key>&amp;</key><string>x</string></dict></dict>",
     Dictionary{{"b", true}, {"", Dictionary{{"&", "x"}}}}},
    {"<dict><key>a</key><true/><key>b</key><true/><key>a</key><false/></dict>",
     Dictionary{{"a", false}, {"b", true}}},
    {"<plist><true/>&#32;</plist>", true},
};

/// Contents of an element, "|" between them, that are refused.
const std::pair<std::string, std::string> kRefusedContents[] = {
    {"string", "a<b/>|&#0;|&nbsp;"},
    {"integer", "|- 1|0x|42xy|1.5"},
    {"real", "|+-1|1,5"},
    {"date",
     "|2023-02-29T09:30:05Z|2024-13-01T09:30:05Z|2024-04-31T09:30:05Z|2024-04-30T24:00:00Z"},
    {"date", "2024-04-30T23:60:00Z|2024-04-30T23:59:-1Z|2024-04-30 23:59:59Z|2024-04-30T23:59:59"},
    {"date", "2024-04-30T23:59:59+01|2024-04-30T23:59:59Z.5|999999999-01-01Z"},
    {"data", "YWI|YWI=YWI=|Y|YWI*"},
    {"array", "text|<key>a</key>|<True/>|<null/>|<true></false>|<plist/>"},
    {"dict", "<key>a</key>|<true/>|<key>a</key><key>b</key>|<string>a</string><true/>"},
    {"dict", "<key>a</key>&amp;<true/>"},
    {"plist", "|<key>a</key>|<true/><true/>|stray<true/>|<plist><true/></plist>"},
};

TEST(XmlReader, ReadsEachElementOrRefusesTheDocument) {
  for (const auto& [content, expected] : kElements) {
    EXPECT_EQ(readPropertyList(content), expected) << content;
  }
  for (const auto& [element, contents] : kRefusedContents) {
    std::istringstream all(contents + '|');
    for (std::string content; std::getline(all, content, '|');) {
      const std::string document = "<" + element + ">" + content + "</" + element + ">";
      EXPECT_EQ(readPropertyList(document), kRefused) << document;
    }
  }
  const auto value = readPropertyList("<real>nan</real>");
  EXPECT_TRUE(value && value->as<double>() && std::isnan(*value->as<double>()));
}

TEST(XmlReader, TakesTheFramesThatWritersPutAroundTheValue) {
  const std::string start = "<?xml version=\"1.0\"?>", value = "<plist><true/></plist>";
  const std::string mark = "\xEF\xBB\xBF", document = start + value;
  const std::string type = start + "<!DOCTYPE plist PUBLIC 'p' 'http://example.invalid/p.dtd'>";
  for (const std::string& bytes :
       {document, mark + document, " \r\n\t" + document, mark + "\n" + document,
        document + "\n<!-- end -->\n", type + value, type + "<true a='b'/>",
        "\xFF\xFE<\0t\0r\0u\0e\0/\0>\0"s, "\xFE\xFF\0<\0t\0r\0u\0e\0/\0>"s}) {
    EXPECT_EQ(readPropertyList(bytes), PropertyList(true)) << bytes;
  }
  for (const std::string& bytes :
       {""s, mark, " "s, "true"s, type, type + "<string>&nbsp;</string>", document + "x",
        document + document, document + '\0', start + "<string>\xE9</string>",
        start + "<string>\xED\xA0\x80</string>", "\0\0\xFE\xFF"s,
        "<?xml version='1.0' encoding='KOI8-R'?>" + value}) {
    EXPECT_EQ(readPropertyList(bytes), kRefused) << bytes;
  }
  EXPECT_EQ(readPropertyList("<?xml version='1.0' encoding='ISO-8859-1'?><string>\xE9</string>"),
            PropertyList("\u00E9"));
}

TEST(XmlReader, ReadsTokensThatSpanThePiecesItIsFedIn) {
  constexpr std::size_t kPieceBytes = 4 << 20;
  const std::string tokens =
      "<!-- c --><string a='b'>x&amp;\u00E9\r\n<![CDATA[y]]>\U0001D562&#10;</string ><?p i?>";
  const PropertyList expected = "x&\u00E9\ny\U0001D562\n";
  for (std::size_t position = 0; position <= tokens.size(); ++position) {
    const std::string blanks(kPieceBytes - position - 7, ' ');
    ASSERT_EQ(readPropertyList("<plist>" + blanks + tokens + "</plist>"), expected) << position;
  }
  const std::string longest(6'000'000, 'y');
  EXPECT_TRUE(readPropertyList("<string a='" + longest + "'>" + longest + "</string>") == longest);
}

const std::string kOnes = bigEndian(~0ull, 8);

const std::pair<std::vector<std::string>, Array> kObjects[] = {
    {{"\x09", "\x50"s, "\x52hi", "\x40", "\xA0", "\xD0"},
     {true, "", "hi", Data{}, Array{}, Dictionary{}}},
    {{"\x10\xFF", "\x12" + bigEndian(~0u, 4), "\x13" + bigEndian(~1ull, 8)},
     {255, std::int64_t{0xFFFFFFFF}, -2}},
    {{"\x14" + kOnes + kOnes, "\x14" + bigEndian(1, 8) + kOnes}, {-1, kMost}},
    {{"\x14" + bigEndian(0, 8) + kOnes, "\x14" + kOnes + bigEndian(0, 8)}, {kMost, kLeast}},
    {{"\x22\x3F\x80\0\0"s, "\x23" + bigEndian(0x3FB999999999999A, 8)}, {1.0, 0.1}},
    {{"\x33" + bigEndian(0x3FE0000000000000, 8), "\x33" + bigEndian(0x7FF0000000000000, 8)},
     {Date{Seconds(0.5)}, Date{Seconds(HUGE_VAL)}}},
    {{"\x4F\x10\x0F" + std::string(15, 'd'), "\x4F\x13" + bigEndian(1, 8) + "d"},
     {Data(15, 'd'), Data{'d'}}},
    {{"\x61\0\xE9"s, "\x63\x20\xAC\xD8\x35\xDD\x62"}, {"\u00E9", "\u20AC\U0001D562"}},
    {{"\x80\x07", "\x87" + bigEndian(1ull << 32, 8), "\x8F" + bigEndian(9, 16)},
     {Uid{7}, Uid{1ull << 32}, Uid{9}}},
};

const std::vector<std::string> kRefusedObjects[] = {
    {"\x00"s, "\x0F"s, "\xC0"s, "\x71\x61"s},  // null, fill byte, set, no type
    {"\x15"s + std::string(32, '\0'), "\x21\x3C\x00"s, "\x32\x3F\x80\x00\x00"s},
    {"\x4F\x09"s, "\x4F\x14"s + bigEndian(1, 16) + "d", "\x88\x01"s + bigEndian(0, 8)},
    {"\x52h\x00"s, "\x61\x00\x00"s, "\x52h\xE9"s},  // U+0000, more than ASCII
    {"\x62\xD8\x35\x00\x41"s, "\x61\xD8\x35"s, "\x61\xDD\x62"s},
    {"\x4F\x13" + bigEndian(~0ull, 8), "\x5F\x12" + bigEndian(0x7FFFFFFF, 4)},
    {"\x6F\x13" + bigEndian(1ull << 63, 8), "\xAF\x13" + bigEndian(1ull << 62, 8)},
    {"\xDF\x13" + bigEndian(1ull << 61, 8), B::array({1}), B::dictionary({0}, {0})},
    {B::array({0})},  // a circle
};

TEST(BinaryReader, ReadsEachObjectOrRefusesTheDocument) {
  for (const auto& [objects, expected] : kObjects) {
    for (std::size_t index = 0; index < objects.size(); ++index) {
      EXPECT_EQ(readPropertyList(B{{objects[index]}}.bytes()), expected[index]);
    }
  }
  for (const std::vector<std::string>& group : kRefusedObjects) {
    for (const std::string& object : group) {
      EXPECT_EQ(readPropertyList(B{{object}}.bytes()), kRefused) << testing::PrintToString(object);
    }
  }
  EXPECT_EQ(readPropertyList(B{{B::dictionary({1}, {1}), "\x10\x01"}}.bytes()), kRefused);
  EXPECT_EQ(readPropertyList(B{{B::dictionary({1}, {2}), "\x51\0"s, "\x09"}}.bytes()), kRefused);
  const BinaryDocument circle{{B::array({1}), B::dictionary({2}, {0}), "\x54loop"}};
  EXPECT_EQ(readPropertyList(circle.bytes()), kRefused);
}

TEST(BinaryReader, ReadsSharedObjectsAndLetsTheLastOfEqualKeysWinInTheFirstOnesPlace) {
  const BinaryDocument document{{B::array({1, 1, 4}), B::dictionary({2, 3, 2}, {4, 4, 5}), "\x51z",
                                 "\x51\x61", "\x09", B::array({2, 2})}};
  const Dictionary dictionary{{"z", Array{"z", "z"}}, {"a", true}};
  EXPECT_EQ(readPropertyList(document.bytes()), PropertyList(Array{dictionary, dictionary, true}));
}

TEST(BinaryReader, TakesOffsetsAndReferencesOfEverySize) {
  for (std::size_t size = 1; size <= 8; ++size) {
    const std::string array = "\xA2" + bigEndian(1, size) + bigEndian(2, size);
    const BinaryDocument document{
        .objects = {array, "\x09", "\x51x"}, .offsetBytes = size, .referenceBytes = size};
    EXPECT_EQ(readPropertyList(document.bytes()), PropertyList(Array{true, "x"})) << size;
  }
}

constexpr std::uint64_t kHuge = std::uint64_t{1} << 61;  // times eight it is nothing

/// What a document of one object with offsets of eight bytes may say wrongly.
const struct {
  std::size_t bytesFromEnd, size;
  std::vector<std::uint64_t> numbers;
} kLies[] = {
    {40, 8, {0, 7, 9, 1000, kHuge, ~0ull, ~0ull - 8}},  // where the object is
    {26, 2, {4, 0x904, 0xFF04, 0x800, 0x809, 0x8FF}},   // bytes of an offset and of a reference
    {24, 8, {0, 2, kHuge, kHuge + 1, ~0ull}},           // how many objects
    {16, 8, {1, kHuge, ~0ull}},                         // which one is the root
    {8, 8, {10, kHuge, ~0ull, ~0ull - 7}},              // where the offsets are
};

TEST(BinaryReader, RefusesWhatDoesNotFitTheFile) {
  const std::string honest = BinaryDocument{.objects = {"\x09"}, .offsetBytes = 8}.bytes();
  ASSERT_EQ(readPropertyList(honest), PropertyList(true));
  for (const auto& lie : kLies) {
    for (const std::uint64_t number : lie.numbers) {
      std::string document = honest;
      document.replace(honest.size() - lie.bytesFromEnd, lie.size, bigEndian(number, lie.size));
      EXPECT_EQ(readPropertyList(document), kRefused) << lie.bytesFromEnd << ' ' << number;
    }
  }
  for (const std::string& cutOff : {"\x13\0"s, "\x23\0"s, "\x33\0"s, "\x4F"s, "\x4F\x13\0"s,
                                    "\x51"s, "\x61\0"s, "\x87\0"s, "\xA1\0"s}) {
    // The table before the object, so that only the trailer follows.
    const std::string document = "bplist00\x09" + cutOff + std::string(6, '\0') + "\x01\x02" +
                                 bigEndian(1, 8) + bigEndian(0, 8) + bigEndian(8, 8);
    EXPECT_EQ(readPropertyList(document), kRefused) << testing::PrintToString(cutOff);
  }
  EXPECT_EQ(readPropertyList("bplist00" + std::string(32, '\0')), kRefused);
  EXPECT_EQ(readPropertyList("bplist01" + B{{"\x09"}}.bytes().substr(8)), kRefused);
}

}  // namespace
}  // namespace kv
