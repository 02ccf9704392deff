#include <gmock/gmock.h>

#include <cmath>
#include <limits>

#include "Documents.h"
#include "platform/PropertyListReader.h"

namespace kv {
namespace {

using Array = PropertyList::Array;
using Data = PropertyList::Data;
using Dictionary = PropertyList::Dictionary;

constexpr double kInfinity = std::numeric_limits<double>::infinity();
const std::nullopt_t kRefused = std::nullopt;

Date unix(double seconds) {
  return Date::fromUnixSeconds(seconds);
}

struct ContentCase {
  const char* content;
  std::optional<PropertyList> expected;
};

const ContentCase kContentCases[] = {
    {"<string/>", ""},
    {"<string> a\tb\r\nc </string>", " a\tb\nc "},
    {"<string>&lt;&#169;&#x1D562;&amp;<![CDATA[<b>&]]><!-- no -->!</string>",
     "<\u00A9\U0001D562&<b>&!"},
    {"<string>a<b/></string>", kRefused},
    {"<string>&#0;</string>", kRefused},
    {"<string>&nbsp;</string>", kRefused},

    {"<integer> -12\n</integer>", -12},
    {"<integer>+0x1Ff</integer>", 0x1FF},
    {"<integer>9223372036854775807</integer>", std::numeric_limits<std::int64_t>::max()},
    {"<integer>9223372036854775808</integer>", std::uint64_t{1} << 63},
    {"<integer>99999999999999999999</integer>", std::numeric_limits<std::uint64_t>::max()},
    {"<integer>-99999999999999999999</integer>", std::numeric_limits<std::int64_t>::min()},
    {"<integer/>", kRefused},
    {"<integer>- 1</integer>", kRefused},
    {"<integer>0x</integer>", kRefused},
    {"<integer>42xy</integer>", kRefused},
    {"<integer>1.5</integer>", kRefused},

    {"<real>1</real>", 1.0},
    {"<real>+.5e1</real>", 5.0},
    {"<real> -1e400 </real>", -kInfinity},
    {"<real>1e-400</real>", 0.0},
    {"<real>1e99999999999999999999</real>", kInfinity},
    {"<real>-infinity</real>", -kInfinity},
    {"<real>+-1</real>", kRefused},
    {"<real>1,5</real>", kRefused},
    {"<real/>", kRefused},

    {"<true/>", true},
    {"<false> </false>", false},
    {"<true>1</true>", kRefused},

    {"<date>2024-02-29T09:30:05Z</date>", unix(1709199005)},
    {"<date>2024-03-05Z</date>", unix(1709596800)},
    {"<date>1900-01-01T12:00:00Z</date>", unix(-2208945600)},
    {"<date>0000-12-31T00:00Z</date>", unix(-62135683200)},
    {"<date>-0001-01-01T00Z</date>", unix(-62198755200)},
    {"<date>2023-02-29T09:30:05Z</date>", kRefused},
    {"<date>2024-13-01T09:30:05Z</date>", kRefused},
    {"<date>2024-04-31T09:30:05Z</date>", kRefused},
    {"<date>2024-04-30T24:00:00Z</date>", kRefused},
    {"<date>2024-04-30T23:60:00Z</date>", kRefused},
    {"<date>2024-04-30T23:59:-1Z</date>", kRefused},
    {"<date>2024-04-30 23:59:59Z</date>", kRefused},
    {"<date>2024-04-30T23:59:59</date>", kRefused},
    {"<date>2024-04-30T23:59:59+01</date>", kRefused},
    {"<date>2024-04-30T23:59:59Z.5</date>", kRefused},
    {"<date>999999999-01-01Z</date>", kRefused},
    {"<date/>", kRefused},

    {"<data/>", Data{}},
    {"<data>\n\tAAEC\n\t/w==\n</data>", Data{0, 1, 2, 255}},
    {"<data>YWI=</data>", Data{'a', 'b'}},
    {"<data>YWI</data>", kRefused},
    {"<data>YWI=YWI=</data>", kRefused},
    {"<data>Y</data>", kRefused},
    {"<data>YWI*</data>", kRefused},

    {"<array/>", Array{}},
    {"<array> <true/><!-- c --><?pi x?>\n<array><false/></array></array>",
     Array{true, Array{false}}},
    {"<array>text</array>", kRefused},
    {"<array><key>a</key></array>", kRefused},

    {"<dict/>", Dictionary{}},
    {"<dict><key>b</key><true/><key/><dict><key>&amp;</key><string>x</string></dict></dict>",
     Dictionary{{"b", true}, {"", Dictionary{{"&", "x"}}}}},
    {"<dict><key>a</key><true/><key>b</key><true/><key>a</key><false/></dict>",
     Dictionary{{"a", false}, {"b", true}}},
    {"<dict><key>a</key></dict>", kRefused},
    {"<dict><true/></dict>", kRefused},
    {"<dict><key>a</key><key>b</key></dict>", kRefused},
    {"<dict><string>a</string><true/></dict>", kRefused},
    {"<dict><key>a</key>&amp;<true/></dict>", kRefused},

    {"", kRefused},
    {"<true/><true/>", kRefused},
    {"<key>a</key>", kRefused},
    {"<plist><true/></plist>", kRefused},
    {"<True/>", kRefused},
    {"<null/>", kRefused},
    {"<true></false>", kRefused},
    {"stray<true/>", kRefused},
    {"<true/>&#32;", true},
};

TEST(XmlReader, ReadsEachElementOrRefusesTheDocument) {
  for (const ContentCase& row : kContentCases) {
    EXPECT_EQ(readPropertyList(xmlDocument(row.content)), row.expected) << row.content;
  }
}

TEST(XmlReader, ReadsNotANumber) {
  const auto value = readPropertyList(xmlDocument("<real>nan</real>"));
  ASSERT_TRUE(value && value->as<double>());
  EXPECT_TRUE(std::isnan(*value->as<double>()));
}

std::string utf16(std::string_view ascii, bool bigEndianUnits) {
  std::string bytes = bigEndianUnits ? "\xFE\xFF" : "\xFF\xFE";
  for (const char character : ascii) {
    const char unit[2] = {bigEndianUnits ? '\0' : character, bigEndianUnits ? character : '\0'};
    bytes.append(unit, 2);
  }
  return bytes;
}

const char kDocumentType[] =
    "<!DOCTYPE plist PUBLIC \"-//Apple//DTD PLIST 1.0//EN\" "
    "\"http://www.apple.com/DTDs/PropertyList-1.0.dtd\">";

TEST(XmlReader, TakesTheFramesThatWritersPutAroundTheValue) {
  const std::string declaration = "<?xml version=\"1.0\"?>";
  const std::string document = declaration + "<plist><true/></plist>";
  const std::string accepted[] = {
      document,
      "\xEF\xBB\xBF" + document,
      " \r\n\t" + document,
      "\xEF\xBB\xBF\n" + document,
      document + "\n<!-- end -->\n",
      declaration + kDocumentType + "<plist version=\"1.0\"><true/></plist>",
      declaration + "<true/>",
      "<plist><true a='b'/></plist>",
      utf16(document, true),
      utf16(document, false),
  };
  for (const std::string& bytes : accepted) {
    EXPECT_EQ(readPropertyList(bytes), PropertyList(true)) << bytes;
  }
  EXPECT_EQ(readPropertyList("<?xml version='1.0' encoding='ISO-8859-1'?><string>\xE9</string>"),
            PropertyList("\u00E9"));

  const std::string refused[] = {
      "",
      "\xEF\xBB\xBF",
      " ",
      "true",
      declaration,
      declaration + kDocumentType + "<string>a&nbsp;b</string>",
      document + "x",
      document + document,
      document + '\0',
      "<?xml version='1.0' encoding='KOI8-R'?><string>a</string>",
      "<string>\xE9</string>",
      "<string>\xED\xA0\x80</string>",
      std::string("\0\0\xFE\xFF", 4),
  };
  for (const std::string& bytes : refused) {
    EXPECT_EQ(readPropertyList(bytes), kRefused) << bytes;
  }
}

TEST(XmlReader, ReadsTokensThatSpanThePiecesItIsFedIn) {
  constexpr std::size_t kPieceBytes = 4 << 20;
  const std::string tokens =
      "<!-- c --><string a='b'>x&amp;\u00E9\r\n<![CDATA[y]]>\U0001D562&#10;</string ><?p i?>";
  const PropertyList expected = "x&\u00E9\ny\U0001D562\n";
  for (std::size_t position = 0; position <= tokens.size(); ++position) {
    const std::string blanks(kPieceBytes - position, ' ');
    ASSERT_EQ(readPropertyList("<plist>" + blanks.substr(7) + tokens + "</plist>"), expected)
        << position;
  }
  // Longer than any piece.
  const std::string text(6'000'000, 'y');
  EXPECT_TRUE(readPropertyList("<string a='" + text + "'>" + text + "</string>") ==
              PropertyList(text));
}

}  // namespace
}  // namespace kv
