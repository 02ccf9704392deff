#include <gmock/gmock.h>

#include <bit>
#include <cmath>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <map>
#include <nlohmann/json.hpp>

#include "Documents.h"
#include "platform/CivilTime.h"
#include "platform/PropertyListReader.h"

namespace kv {
namespace {

// Keeps the order of keys, which counts.
using Json = nlohmann::ordered_json;

std::string read(const std::filesystem::path& path) {
  std::ifstream file(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(file), {}};
}

std::string base64(const PropertyList::Data& data) {
  const std::string digits = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
  std::string text;
  unsigned bits = 0;
  int bitCount = 0;
  for (const std::uint8_t byte : data) {
    bits = (bits << 8 | byte) & 0xFFFF;
    for (bitCount += 8; bitCount >= 6; bitCount -= 6) text += digits[bits >> (bitCount - 6) & 0x3F];
  }
  if (bitCount > 0) text += digits[bits << (6 - bitCount) & 0x3F];
  return text + std::string((4 - text.size() % 4) % 4, '=');
}

/// A value in the notation of the index of expectations.
struct ToJson {
  Json operator()(const std::string& value) const { return {"string", value}; }
  Json operator()(bool value) const { return {"boolean", value}; }
  Json operator()(std::int64_t value) const { return {"integer", std::to_string(value)}; }
  Json operator()(std::uint64_t value) const { return {"integer", std::to_string(value)}; }
  Json operator()(PropertyList::Uid value) const { return {"uid", std::to_string(value.value)}; }
  Json operator()(const PropertyList::Data& value) const { return {"data", base64(value)}; }

  Json operator()(double value) const {
    if (std::isnan(value)) return {"real", "nan"};
    char hexadecimal[17];
    std::snprintf(hexadecimal, sizeof hexadecimal, "%016llx",
                  static_cast<unsigned long long>(std::bit_cast<std::uint64_t>(value)));
    return {"real", hexadecimal};
  }

  Json operator()(Date value) const {
    const std::int64_t microseconds = std::llround(value.sinceReference.count() * 1e6);
    const std::int64_t seconds = microseconds / 1'000'000 - (microseconds % 1'000'000 < 0 ? 1 : 0);
    const CivilTime time = CivilTime::fromUnixSeconds(
        seconds + static_cast<std::int64_t>(Date::kReferenceInUnixSeconds));
    char text[64];
    std::snprintf(text, sizeof text, "%04d-%02d-%02dT%02d:%02d:%02d.%06dZ",
                  static_cast<int>(time.year), time.month, time.day, time.hour, time.minute,
                  time.second, static_cast<int>(microseconds - seconds * 1'000'000));
    return {"date", text};
  }

  Json operator()(const PropertyList::Array& value) const {
    Json elements = Json::array();
    for (const PropertyList& element : value) elements.push_back(element.visit(*this));
    return Json::array({"array", elements});
  }

  Json operator()(const PropertyList::Dictionary& value) const {
    Json members = Json::object();
    for (const PropertyList::Entry& entry : value) members[entry.key] = entry.value.visit(*this);
    return Json::array({"dict", members});
  }
};

Json asJson(const std::optional<PropertyList>& value) {
  return value ? value->visit(ToJson()) : Json("error");
}

struct Difference {
  const char* expected;
  const char* reason;
};

/// Where we answer otherwise than the index, on purpose.
const std::map<std::string, Difference> kDifferences = {
    {"plist--array-null-binary.plist", {"error", "null is no type of a property list"}},
    {"plist--binary-edge-fill.plist", {"error", "a fill byte is no object"}},
    {"rust-plist--data-xml_entity_error.plist", {"error", "there is text but no value"}},
    {"biplist--data-small_date.plist", {"read", "dates outside of the years 1 to 9999 are dates"}},
    {"plist--date-edge-binary.plist", {"read", "dates outside of the years 1 to 9999 are dates"}},
};

TEST(RealFiles, AreReadAsTheirIndexSays) {
  const char* const given = std::getenv("KV_PLISTS");
  const std::filesystem::path folder = given != nullptr ? given : KV_PLISTS_FOLDER;
  std::ifstream index(folder / "index.jsonl");
  if (!index) GTEST_SKIP() << "no real files at " << folder << "; KV_PLISTS may name their folder";

  std::size_t files = 0;
  for (std::string line; std::getline(index, line); ++files) {
    const Json entry = Json::parse(line);
    const std::string name = entry["file"];
    const auto value = readPropertyList(read(folder / "files" / name));
    const auto difference = kDifferences.find(name);
    if (difference == kDifferences.end()) {
      EXPECT_EQ(asJson(value), entry["expected"]) << name;
    } else {
      EXPECT_STREQ(value ? "read" : "error", difference->second.expected)
          << name << ": " << difference->second.reason;
    }
    if (value) {
      // What was read is what the backup runner writes again. The bytes compare NaNs, too.
      const std::string written = writePropertyList(*value, PropertyListEncoding::kBinary);
      const auto again = readPropertyList(written);
      EXPECT_TRUE(again && writePropertyList(*again, PropertyListEncoding::kBinary) == written)
          << name;
    }
  }
  EXPECT_GT(files, 0u);
}

}  // namespace
}  // namespace kv
