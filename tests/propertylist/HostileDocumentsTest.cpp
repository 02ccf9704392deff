#include <gmock/gmock.h>
#include <sys/resource.h>

#include <cstdlib>
#include <fstream>

#include "Documents.h"

namespace kv {
namespace {

using namespace std::string_literals;
using B = BinaryDocument;

TEST(HostileDocuments, TruncatedOrChangedAnywhereAreRefusedOrReadAsSomethingThatCanBeWritten) {
  const Array scalars{"a \u00E9 & b", -3, std::uint64_t{1} << 63, 0.5, true, Date{}, Uid{1}};
  const PropertyList everyType = Array{Dictionary{{"a", scalars}, {"b", Data(40, 7)}}, Array{}};
  for (const PropertyListEncoding encoding : {kXml, kBinary}) {
    std::string document = writePropertyList(everyType, encoding);
    if (encoding == kXml) document.pop_back();  // the line feed that it can do without
    ASSERT_TRUE(readPropertyList(document));
    for (std::size_t index = 0; index < document.size(); ++index) {
      EXPECT_FALSE(readPropertyList(document.substr(0, index))) << index;
      for (const int byte : {0x00, 0x01, 0x7F, 0x80, 0xFF, document[index] ^ 1}) {
        std::string changed = document;
        changed[index] = static_cast<char>(byte);
        const auto value = readPropertyList(changed);
        EXPECT_TRUE(!value || readPropertyList(writePropertyList(*value, encoding))) << changed;
      }
    }
  }
}

TEST(HostileDocuments, NestAsDeepAsTheLimitAndNoDeeper) {
  const std::size_t limit = PropertyListLimits().depth;
  for (const std::size_t depth : {limit, limit + 1, std::size_t{100'000}}) {
    const std::string xml = repeated("<array>", depth) + repeated("</array>", depth);
    EXPECT_EQ(readPropertyList(xml).has_value(), depth == limit) << depth;
    EXPECT_FALSE(readPropertyList(repeated("<dict><key>k</key>", depth)));
    BinaryDocument binary;
    for (std::size_t level = 1; level < depth; ++level) binary.objects.push_back(B::array({level}));
    binary.objects.push_back("\xA0");
    EXPECT_EQ(readPropertyList(binary.bytes()).has_value(), depth == limit) << depth;
  }
}

TEST(HostileDocuments, HoldAsManyNodesAndBytesAsTheLimitsAndNoMore) {
  for (const PropertyListEncoding encoding : {kXml, kBinary}) {
    const std::string members = writePropertyList(Dictionary{{"a", Array{2, 3, 4}}}, encoding);
    EXPECT_TRUE(readPropertyList(members, {.nodes = 5}));
    EXPECT_FALSE(readPropertyList(members, {.nodes = 4}));
    for (const PropertyList& value :
         {PropertyList(std::string(600'000, 'x')), PropertyList(repeated("\u20AC", 200'000)),
          PropertyList(Data(600'000)), PropertyList(Dictionary{{std::string(600'000, 'k'), 1}})}) {
      const std::string large = writePropertyList(value, encoding);
      EXPECT_TRUE(readPropertyList(large, {.memoryBytes = 4'000'000}));
      EXPECT_FALSE(readPropertyList(large, {.memoryBytes = 600'000}));
      EXPECT_TRUE(readPropertyList(large, {.fileBytes = large.size()}));
      EXPECT_FALSE(readPropertyList(large, {.fileBytes = large.size() - 1}));
    }
  }
}

TEST(HostileDocuments, DeclareNoEntities) {
  // Each default would be gone through at each element.
  std::string defaults;
  for (int index = 0; index < 2000; ++index) defaults += " a" + std::to_string(index) + " CDATA ''";
  for (const std::string& declarations :
       {"<!ENTITY a 'b'>"s, "<!ENTITY a SYSTEM 'file:///etc/hostname'>"s,
        "<!ENTITY a PUBLIC 'p' 'file:///etc/hostname' NDATA n>"s,
        "<!ENTITY % a '<!ENTITY b \"c\">'> %a;"s, "<!ENTITY a 'lol'><!ENTITY b '&a;&a;'>"s,
        "<!ENTITY % a SYSTEM 'file:///etc/hostname'> %a;"s, "<!ATTLIST true" + defaults + ">"}) {
    for (const char* const content : {"<true/>", "<string>&a;</string>", "<string>&b;</string>"}) {
      EXPECT_FALSE(readPropertyList("<!DOCTYPE plist [" + declarations + "]>" + content));
    }
  }
  EXPECT_TRUE(readPropertyList("<!DOCTYPE plist [<!ELEMENT plist ANY>]><true/>"));
}

/// Each part so many times, "#" in it replaced by which time it is; then blanks up to the largest
/// size, then the end.
struct LargeCase {
  bool isRead;
  std::string end;
  std::vector<std::pair<std::string, std::size_t>> parts;
  /// Not empty: binary, arrays of so many references to the next one, the last one to the parts.
  std::vector<std::size_t> counts = {};
};

const std::string kLatin = "<?xml version='1.0' encoding='ISO-8859-1'?><array>";
/// Texts that double when they are read.
const std::string kGrowing = "<string>" + std::string(100'000, '\xE9') + "</string>";
const std::string kMember = "<key>#</key><true/>";
const std::string kHundred = "<array>" + repeated("<true/>", 99) + "</array>";
const std::string kPairs = "<dict><key>a</key><true/><key>b</key><true/></dict>";

const LargeCase kLargeCases[] = {
    {true, "</array>", {{"<array>", 1}, {"<true/>", 999'999}}},
    {false, "</array>", {{"<array>", 1}, {"<true/>", 1'000'000}}},
    {true, "</dict>", {{"<dict>", 1}, {kMember, 800'000}}},
    {false, "</dict>", {{"<dict>", 1}, {kMember, 900'000}}},
    // One member more than a power of two: both stacks have just doubled.
    {true, "</dict></array>", {{kLatin, 1}, {kGrowing, 220}, {"<dict>", 1}, {kMember, 524'289}}},
    {true, "</array>", {{kLatin, 1}, {kHundred, 9900}, {kGrowing, 350}}},
    {false, "</array>", {{kLatin, 1}, {kHundred, 9900}, {kGrowing, 390}}},
    {true, "</array>", {{kLatin, 1}, {kPairs, 300'000}, {kGrowing, 230}}},
    {false, "</data></array>", {{kLatin, 1}, {kHundred, 5000}, {"<data>", 1}, {"AAAA", 15 << 20}}},
    {true, "</string>", {{"<string>", 1}, {"x", 67'000'000}}},
    {true, "</string>", {{"<string>", 1}, {"\n", 67'000'000}}},
    {true, "--><true/>", {{"<!--", 1}, {"x", 67'000'000}}},
    {false, "/>", {{"<", 1}, {"x", 67'000'000}}},
    // Small objects, a large text and a wide one, shared within the limits and beyond them.
    {true, "", {{"\x09", 1}}, {10, 10, 10, 10, 10, 8}},
    {false, "", {{"\x09", 1}}, std::vector<std::size_t>(20, 10)},
    {true, "", {{"\x41x", 1}}, {1000, 990}},
    {true, "", {{B::marker(0x5, 40 << 20), 1}, {"x", 40 << 20}}, {3}},
    {false, "", {{B::marker(0x5, 2 << 20), 1}, {"x", 2 << 20}}, {10, 10}},
    {true, "", {{B::marker(0x6, 31 << 20), 1}, {"\x30\x42", 31 << 20}}, {1}},
};

std::string largeDocument(const LargeCase& row) {
  std::string content;
  content.reserve(PropertyListLimits().fileBytes);
  for (const auto& [text, times] : row.parts) {
    const std::size_t mark = text.find('#');
    for (std::size_t count = 0; count < times; ++count) {
      content += text;
      if (mark == std::string::npos) continue;
      content.replace(content.size() - text.size() + mark, 1, std::to_string(count));
    }
  }
  const std::size_t otherBytes = row.counts.empty() ? row.end.size() : 100'000;
  content.resize(PropertyListLimits().fileBytes - otherBytes, ' ');
  if (row.counts.empty()) return content + row.end;
  BinaryDocument document;
  for (const std::size_t count : row.counts) {
    document.objects.push_back(B::array(B::References(count, document.objects.size() + 1)));
  }
  document.objects.push_back(content);
  return document.bytes();
}

/// Reads in a process of its own and ends it: 0 when all went as it should.
[[noreturn]] void readWithinBounds(const LargeCase& row) {
  // The kernel ends what takes longer than any reader may, even on a slow machine.
  const rlimit processorSeconds{.rlim_cur = 10, .rlim_max = 10};
  setrlimit(RLIMIT_CPU, &processorSeconds);
  const std::string document = largeDocument(row);
  // What making the document took does not count.
  std::ofstream("/proc/self/clear_refs") << "5";
  const bool isRead = readPropertyList(document).has_value();
  rusage usage{};
  getrusage(RUSAGE_SELF, &usage);
  constexpr long kMaximumKilobytes = 256 * 1024;
  std::fprintf(stderr, "%s, %ld KB", isRead ? "read" : "refused", usage.ru_maxrss);
  std::_Exit(isRead == row.isRead && usage.ru_maxrss < kMaximumKilobytes ? 0 : 1);
}

TEST(HostileDocuments, StayWithin256Megabytes) {
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
  GTEST_SKIP() << "a sanitizer's own memory hides the reader's";
#endif
  for (const LargeCase& row : kLargeCases) {
    EXPECT_EXIT(readWithinBounds(row), testing::ExitedWithCode(0), "") << &row - kLargeCases;
  }
}

}  // namespace
}  // namespace kv
