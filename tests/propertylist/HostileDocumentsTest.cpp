#include <gmock/gmock.h>
#include <sys/resource.h>

#include <cstdlib>
#include <fstream>
#include <functional>

#include "Documents.h"
#include "platform/PropertyListReader.h"
#include "platform/PropertyListWriter.h"

namespace kv {
namespace {

using B = BinaryDocument;

constexpr PropertyListEncoding kXml = PropertyListEncoding::kXml;
constexpr PropertyListEncoding kBinary = PropertyListEncoding::kBinary;

/// A small document with every type in it.
PropertyList everything() {
  using Dictionary = PropertyList::Dictionary;
  return PropertyList::Array{
      Dictionary{{"text", "a \u00E9 & b"}, {"number", -3}, {"large", std::uint64_t{1} << 63}},
      Dictionary{{"real", 0.5}, {"flag", true}, {"date", Date{Seconds(1)}}},
      Dictionary{{"data", PropertyList::Data(40, 7)}, {"none", PropertyList::Array{}}},
  };
}

TEST(HostileDocuments, TruncatedAnywhereAreRefused) {
  for (const PropertyListEncoding encoding : {kXml, kBinary}) {
    std::string document = writePropertyList(everything(), encoding);
    if (encoding == kXml) document.pop_back();  // the line feed that it can do without
    ASSERT_TRUE(readPropertyList(document));
    for (std::size_t size = 0; size < document.size(); ++size) {
      EXPECT_FALSE(readPropertyList(document.substr(0, size))) << size;
    }
  }
}

TEST(HostileDocuments, ChangedAnywhereAreRefusedOrReadAsSomethingThatCanBeWritten) {
  std::size_t accepted = 0;
  for (const PropertyListEncoding encoding : {kXml, kBinary}) {
    const std::string document = writePropertyList(everything(), encoding);
    for (std::size_t index = 0; index < document.size(); ++index) {
      for (const int byte : {0x00, 0x01, 0x7F, 0x80, 0xFF, document[index] ^ 1}) {
        std::string changed = document;
        changed[index] = static_cast<char>(byte);
        const auto value = readPropertyList(changed);
        if (!value) continue;
        ++accepted;
        EXPECT_TRUE(readPropertyList(writePropertyList(*value, encoding))) << index << ' ' << byte;
      }
    }
  }
  EXPECT_GT(accepted, 100u);
}

TEST(HostileDocuments, NestAsDeepAsTheLimitAndNoDeeper) {
  const auto xml = [](std::size_t depth) {
    return xmlDocument(repeated("<array>", depth) + repeated("</array>", depth));
  };
  const auto binary = [](std::size_t depth) {
    BinaryDocument document;
    for (std::size_t level = 1; level < depth; ++level)
      document.objects.push_back(B::array({level}));
    document.objects.push_back(B::array({}));
    return document.bytes();
  };
  const std::size_t limit = PropertyListLimits().depth;
  EXPECT_TRUE(readPropertyList(xml(limit)));
  EXPECT_TRUE(readPropertyList(binary(limit)));
  EXPECT_FALSE(readPropertyList(xml(limit + 1)));
  EXPECT_FALSE(readPropertyList(binary(limit + 1)));
  EXPECT_FALSE(readPropertyList(xml(100'000)));
  EXPECT_FALSE(readPropertyList(binary(60'000)));
  EXPECT_FALSE(readPropertyList(xmlDocument(repeated("<dict><key>k</key>", 100'000))));
}

TEST(HostileDocuments, HoldAsManyNodesAndBytesAsTheLimitsAndNoMore) {
  const auto dictionary = [](PropertyListEncoding encoding, int size) {
    PropertyList::Dictionary members;
    for (int index = 0; index < size; ++index) members.set(std::to_string(index), index);
    return writePropertyList(members, encoding);
  };
  for (const PropertyListEncoding encoding : {kXml, kBinary}) {
    EXPECT_TRUE(readPropertyList(dictionary(encoding, 10), {.nodes = 11}));
    EXPECT_FALSE(readPropertyList(dictionary(encoding, 10), {.nodes = 10}));
    const PropertyList largeValues[] = {std::string(600'000, 'x'), repeated("\u20AC", 200'000),
                                        PropertyList::Data(600'000)};
    for (const PropertyList& value : largeValues) {
      const std::string large = writePropertyList(value, encoding);
      EXPECT_TRUE(readPropertyList(large, {.memoryBytes = 4'000'000}));
      EXPECT_FALSE(readPropertyList(large, {.memoryBytes = 600'000}));
      EXPECT_TRUE(readPropertyList(large, {.fileBytes = large.size()}));
      EXPECT_FALSE(readPropertyList(large, {.fileBytes = large.size() - 1}));
    }
  }
}

TEST(HostileDocuments, DeclareNoEntities) {
  const std::string billionLaughs = [] {
    std::string declarations = "<!ENTITY l0 'lol'>";
    for (int level = 1; level < 10; ++level) {
      const std::string previous = "&l" + std::to_string(level - 1) + ";";
      declarations += "<!ENTITY l" + std::to_string(level) + " '" + repeated(previous, 10) + "'>";
    }
    return declarations;
  }();
  const std::pair<std::string, const char*> rows[] = {
      {"<!ENTITY a 'b'>", "<true/>"},
      {"<!ENTITY a 'b'>", "<string>&a;</string>"},
      {"<!ENTITY a SYSTEM 'file:///etc/hostname'>", "<string>&a;</string>"},
      {"<!ENTITY a PUBLIC 'p' 'file:///etc/hostname' NDATA n>", "<true/>"},
      {"<!ENTITY % a '<!ENTITY b \"c\">'> %a;", "<string>&b;</string>"},
      {"<!ENTITY % a SYSTEM 'file:///etc/hostname'> %a;", "<true/>"},
      {billionLaughs, "<string>&l9;</string>"},
  };
  for (const auto& [declarations, content] : rows) {
    EXPECT_FALSE(readPropertyList("<!DOCTYPE plist [" + declarations + "]>" + content))
        << declarations;
  }
  EXPECT_TRUE(readPropertyList("<!DOCTYPE plist [<!ELEMENT plist ANY>]><true/>"));
  // Each default would be gone through at each element.
  std::string defaults;
  for (int index = 0; index < 2000; ++index) defaults += " a" + std::to_string(index) + " CDATA ''";
  EXPECT_FALSE(readPropertyList("<!DOCTYPE plist [<!ATTLIST true" + defaults + ">]><true/>"));
}

constexpr std::size_t kFileBytes = PropertyListLimits().fileBytes;

/// A document of the largest size whose content is `head`, many times `filler`, and `tail`.
std::string largestXml(const std::string& head, std::string_view filler, const std::string& tail) {
  const std::size_t room = kFileBytes - head.size() - tail.size() - 100;
  return xmlDocument(head + repeated(filler, room / filler.size()) + tail);
}

/// An array of `count` references to each level's next, the last one to `leaf`.
std::string bomb(const std::vector<std::size_t>& counts, const std::string& leaf) {
  BinaryDocument document;
  for (std::size_t level = 0; level < counts.size(); ++level) {
    document.objects.push_back(B::array(std::vector<std::uint64_t>(counts[level], level + 1)));
  }
  document.objects.push_back(leaf);
  return document.bytes(kFileBytes);
}

struct LargeCase {
  const char* name;
  bool isRead;
  std::function<std::string()> document;
};

std::string nodes(std::size_t count) {
  return "<array>" + repeated("<true/>", count);
}

const LargeCase kLargeCases[] = {
    {"xml: a million small nodes", true,
     [] { return largestXml(nodes(999'000), " ", "</array>"); }},
    {"xml: as many keys as there may be", true,
     [] {
       std::string content;
       for (int key = 0; key < 499'000; ++key) {
         content.append("<key>").append(std::to_string(key)).append("</key><true/>");
       }
       return xmlDocument("<dict>" + content + "</dict>");
     }},
    {"xml: too many nodes", false, [] { return largestXml("<array>", "<true/>", "</array>"); }},
    {"xml: one long text", true, [] { return largestXml("<string>", "x", "</string>"); }},
    {"xml: one long text of line feeds", true,
     [] { return largestXml("<string>", "\n", "</string>"); }},
    {"xml: long data beside many nodes", false,
     [] { return largestXml(nodes(500'000) + "<data>", "AAAA", "</data></array>"); }},
    {"xml: middling texts", false,
     [] {
       return largestXml("<array>", "<string>" + std::string(41, 'x') + "</string>", "</array>");
     }},
    {"xml: a long comment", true, [] { return largestXml("<!--", "x", "--><true/>"); }},
    {"xml: a long name", false, [] { return largestXml("<", "x", "/>"); }},
    {"xml: a text that grows when it is read", true,
     [] {
       return "<?xml version='1.0' encoding='ISO-8859-1'?><array>" +
              repeated("<string>" + std::string(100'000, '\xE9') + "</string>", 600) + "</array>";
     }},
    {"binary: a million references to one object", true,
     [] {
       return bomb({10, 10, 10, 10, 10, 8}, "\x09");
     }},
    {"binary: references that multiply beyond all limits", false,
     [] { return bomb(std::vector<std::size_t>(20, 10), "\x09"); }},
    {"binary: a shared text just within the limit", true,
     [] { return bomb({3}, B::text(std::string(40 << 20, 'x'))); }},
    {"binary: a shared text beyond it", false,
     [] {
       return bomb({10, 10}, B::text(std::string(2 << 20, 'x')));
     }},
    {"binary: small blocks, where the heap's own overhead is the most", true,
     [] {
       return bomb({1000, 990}, "\x41x");
     }},
    {"binary: wide characters", true,
     [] { return bomb({1}, B::marker(0x6, 31 << 20) + repeated("\x30\x42", 31 << 20)); }},
};

/// Reads in a process of its own and ends it: 0 when all went as it should.
[[noreturn]] void readWithinBounds(const LargeCase& row) {
  // The kernel ends what takes longer than any reader may, even on a slow machine.
  const rlimit processorSeconds{.rlim_cur = 10, .rlim_max = 10};
  setrlimit(RLIMIT_CPU, &processorSeconds);
  const std::string document = row.document();
  // What making the document took does not count.
  std::ofstream("/proc/self/clear_refs") << "5";
  const bool isRead = readPropertyList(document).has_value();
  rusage usage{};
  getrusage(RUSAGE_SELF, &usage);
  constexpr long kMaximumKilobytes = 256 * 1024;
  std::fprintf(stderr, "%s, %ld MB", isRead ? "read" : "refused", usage.ru_maxrss / 1024);
  std::_Exit(isRead == row.isRead && usage.ru_maxrss < kMaximumKilobytes ? 0 : 1);
}

TEST(HostileDocuments, StayWithin256Megabytes) {
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
  GTEST_SKIP() << "a sanitizer's own memory hides the reader's";
#endif
  for (const LargeCase& row : kLargeCases) {
    EXPECT_EXIT(readWithinBounds(row), testing::ExitedWithCode(0), "") << row.name;
  }
}

}  // namespace
}  // namespace kv
