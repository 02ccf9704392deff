#include "tools/kvctl/FaultReportValues.h"

#include <array>
#include <cmath>
#include <cstdint>
#include <limits>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "tools/kvctl/ExitStatus.h"

namespace kv::kvctl {
namespace {

constexpr std::string_view kDigits =
    "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";

[[noreturn]] void refuse(const char* what) {
  throw Refusal(ExitStatus::kUnreadable, std::string("the report cannot be understood: ") + what);
}

std::string base64(const PropertyList::Data& bytes) {
  std::string text;
  for (std::size_t at = 0; at < bytes.size(); at += 3) {
    const auto byte = [&](std::size_t index) -> std::uint32_t {
      return at + index < bytes.size() ? bytes[at + index] : 0;
    };
    const std::uint32_t group = byte(0) << 16 | byte(1) << 8 | byte(2);
    for (std::size_t digit = 0; digit < 4; ++digit) {
      const bool isFilled = at + digit <= bytes.size();
      text += isFilled ? kDigits[group >> (18 - 6 * digit) & 63] : '=';
    }
  }
  return text;
}

PropertyList::Data fromBase64(std::string_view text) {
  if (text.size() % 4 != 0) refuse("data of a wrong length");
  for (int padding = 0; padding < 2 && text.ends_with('='); ++padding) text.remove_suffix(1);
  PropertyList::Data bytes;
  bytes.reserve(text.size() * 3 / 4);
  std::uint32_t group = 0;
  unsigned bits = 0;
  for (const char character : text) {
    const auto digit = kDigits.find(character);
    if (digit == std::string_view::npos) refuse("data that is no base64");
    group = group << 6 | static_cast<std::uint32_t>(digit);
    bits += 6;
    if (bits < 8) continue;
    bits -= 8;
    bytes.push_back(static_cast<std::uint8_t>(group >> bits & 255));
  }
  return bytes;
}

Json realJson(double value) {
  if (std::isnan(value)) return "nan";
  if (std::isinf(value)) return value > 0 ? "inf" : "-inf";
  return value;
}

double realFrom(const Json& json) {
  if (json.is_number()) return json.get<double>();
  const auto* const word = json.get_ptr<const std::string*>();
  constexpr double kInfinity = std::numeric_limits<double>::infinity();
  if (word != nullptr && *word == "nan") return std::numeric_limits<double>::quiet_NaN();
  if (word != nullptr && *word == "inf") return kInfinity;
  if (word != nullptr && *word == "-inf") return -kInfinity;
  refuse("a number is no number");
}

struct ToJson {
  Json operator()(const PropertyList::String& value) const { return value; }
  Json operator()(bool value) const { return value; }
  Json operator()(std::int64_t value) const { return value; }
  Json operator()(std::uint64_t value) const { return value; }
  Json operator()(double value) const {
    if (std::isfinite(value)) return value;
    return {{"$real", realJson(value)}};
  }
  Json operator()(Date value) const { return {{"$date", dateJson(value)}}; }
  Json operator()(PropertyList::Uid value) const { return {{"$uid", value.value}}; }
  Json operator()(const PropertyList::Data& value) const { return {{"$data", base64(value)}}; }

  Json operator()(const PropertyList::Array& value) const {
    Json array = Json::array();
    for (const PropertyList& element : value) array.push_back(element.visit(*this));
    return array;
  }

  Json operator()(const PropertyList::Dictionary& value) const {
    if (value.size() > kMostKeys) return {{"$entries", entries(value)}};
    // Put in one by one, each would be compared with all before.
    Json::object_t object;
    for (const PropertyList::Entry& entry : value) {
      const bool isMarked = entry.key.starts_with('$');
      object.push_back({(isMarked ? "$" : "") + entry.key, entry.value.visit(*this)});
    }
    return object;
  }

 private:
  Json entries(const PropertyList::Dictionary& value) const {
    Json array = Json::array();
    for (const PropertyList::Entry& entry : value) {
      array.push_back(entry.key);
      array.push_back(entry.value.visit(*this));
    }
    return array;
  }
};

PropertyList integerFrom(const Json& json) {
  if (json.is_number_unsigned()) return PropertyList(json.get<std::uint64_t>());
  return PropertyList(json.get<std::int64_t>());
}

PropertyList dictionaryFromEntries(const Json& json) {
  if (!json.is_array() || json.size() % 2 != 0) refuse("a dictionary without pairs");
  std::vector<PropertyList::Entry> entries;
  for (std::size_t at = 0; at < json.size(); at += 2) {
    const auto* const key = json[at].get_ptr<const std::string*>();
    if (key == nullptr) refuse("a key that is no text");
    entries.push_back({*key, valueFrom(json[at + 1])});
  }
  return PropertyList::Dictionary::fromEntries(std::move(entries));
}

/// The value of an object like {"$date": 5}; nothing for a dictionary.
std::optional<PropertyList> markedFrom(const Json& object) {
  if (object.size() != 1) return std::nullopt;
  const std::string& mark = object.begin().key();
  const Json& value = object.begin().value();
  if (!mark.starts_with('$') || mark.starts_with("$$")) return std::nullopt;
  if (mark == "$date") return dateFrom(value);
  if (mark == "$real") return realFrom(value);
  if (mark == "$entries") return dictionaryFromEntries(value);
  if (mark == "$uid" && value.is_number_unsigned()) {
    return PropertyList::Uid{value.get<std::uint64_t>()};
  }
  if (mark == "$data" && value.is_string()) return fromBase64(value.get_ref<const std::string&>());
  refuse("a value of an unknown kind");
}

PropertyList dictionaryFrom(const Json& object) {
  if (auto marked = markedFrom(object)) return std::move(*marked);
  std::vector<PropertyList::Entry> entries;
  for (const auto& [key, value] : object.items()) {
    if (key.starts_with('$') && !key.starts_with("$$")) refuse("a key with a single \"$\"");
    entries.push_back({key.starts_with('$') ? key.substr(1) : key, valueFrom(value)});
  }
  return PropertyList::Dictionary::fromEntries(std::move(entries));
}

PropertyList arrayFrom(const Json& json) {
  PropertyList::Array array;
  array.reserve(json.size());
  for (const Json& element : json) array.push_back(valueFrom(element));
  return array;
}

}  // namespace

Json dateJson(Date date) {
  return realJson(date.sinceReference.count());
}

Date dateFrom(const Json& json) {
  return {Seconds(realFrom(json))};
}

Json valueJson(const PropertyList& value) {
  return value.visit(ToJson());
}

PropertyList valueFrom(const Json& json) {
  switch (json.type()) {
    case Json::value_t::string:
      return json.get_ref<const std::string&>();
    case Json::value_t::boolean:
      return json.get<bool>();
    case Json::value_t::number_integer:
    case Json::value_t::number_unsigned:
      return integerFrom(json);
    case Json::value_t::number_float:
      return json.get<double>();
    case Json::value_t::array:
      return arrayFrom(json);
    case Json::value_t::object:
      return dictionaryFrom(json);
    default:
      refuse("a value is missing");
  }
}

}  // namespace kv::kvctl
