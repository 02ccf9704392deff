#include "platform/sdbus/BusValues.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <limits>
#include <string_view>

#include "platform/Utf8.h"

namespace kv {
namespace {

constexpr int kDeepest = 8;
constexpr std::string_view kDictionary = "a{sv}";
constexpr std::string_view kDictionaries = "aa{sv}";
constexpr std::string_view kStrings = "as";

/// The bus ends the connection of whoever sends anything else.
std::string wellFormed(std::string_view text) {
  std::string result;
  while (!text.empty()) {
    const char32_t character = takeUtf8(text);
    appendUtf8(result, character == 0 ? kReplacementCharacter : character);
  }
  return result;
}

std::int64_t wholeSeconds(Date date) {
  const double seconds = std::floor(date.unixSeconds());
  constexpr double kFurthest = 1e15;  // what is further off, or no time at all, is no time
  return std::fabs(seconds) <= kFurthest ? static_cast<std::int64_t>(seconds) : 0;
}

std::int64_t integerOf(const PropertyList& value) {
  if (const auto* integer = value.as<std::int64_t>()) return *integer;
  if (const auto* date = value.as<Date>()) return wholeSeconds(*date);
  return 0;
}

template <class T>
bool holdsOnly(const PropertyList::Array& array) {
  return std::all_of(array.begin(), array.end(),
                     [](const PropertyList& value) { return value.as<T>() != nullptr; });
}

const char* typeOf(const PropertyList& value) {
  if (value.as<std::int64_t>() || value.as<Date>()) return "x";
  if (value.as<double>()) return "d";
  if (value.as<bool>()) return "b";
  if (value.as<PropertyList::Dictionary>()) return "a{sv}";
  const auto* array = value.as<PropertyList::Array>();
  if (array == nullptr) return "s";
  return holdsOnly<std::string>(*array) ? "as" : "aa{sv}";
}

int append(sd_bus_message* message, std::string_view type, const PropertyList& value, int depth);

/// Between opening and closing a container of one type.
template <class Fill>
int inContainer(sd_bus_message* message, char kind, const char* contents, Fill&& fill) {
  int result = sd_bus_message_open_container(message, kind, contents);
  if (result >= 0) result = fill();
  return result < 0 ? result : sd_bus_message_close_container(message);
}

int appendVariant(sd_bus_message* message, const char* type, const PropertyList& value, int depth) {
  return inContainer(message, SD_BUS_TYPE_VARIANT, type,
                     [&] { return append(message, type, value, depth); });
}

int appendEntries(sd_bus_message* message, const PropertyList& value, int depth) {
  const auto* dictionary = value.as<PropertyList::Dictionary>();
  if (dictionary == nullptr || depth > kDeepest) return 0;
  for (const PropertyList::Entry& entry : *dictionary) {
    const int result = inContainer(message, SD_BUS_TYPE_DICT_ENTRY, "sv", [&] {
      const int appended = sd_bus_message_append(message, "s", wellFormed(entry.key).c_str());
      if (appended < 0) return appended;
      return appendVariant(message, typeOf(entry.value), entry.value, depth + 1);
    });
    if (result < 0) return result;
  }
  return 0;
}

int appendElements(sd_bus_message* message, std::string_view type, const PropertyList& value,
                   int depth) {
  const auto* array = value.as<PropertyList::Array>();
  if (array == nullptr || depth > kDeepest) return 0;
  for (const PropertyList& element : *array) {
    const int result = append(message, type, element, depth + 1);
    if (result < 0) return result;
  }
  return 0;
}

int append(sd_bus_message* message, std::string_view type, const PropertyList& value, int depth) {
  if (type == kDictionary) {
    return inContainer(message, SD_BUS_TYPE_ARRAY, "{sv}",
                       [&] { return appendEntries(message, value, depth); });
  }
  if (type == kDictionaries || type == kStrings) {
    const std::string element(type.substr(1));
    return inContainer(message, SD_BUS_TYPE_ARRAY, element.c_str(),
                       [&] { return appendElements(message, element, value, depth); });
  }
  switch (type.front()) {
    case SD_BUS_TYPE_BOOLEAN: {
      const auto* truth = value.as<bool>();
      return sd_bus_message_append(message, "b", truth != nullptr && *truth ? 1 : 0);
    }
    case SD_BUS_TYPE_UINT32: {
      const auto number =
          std::clamp<std::int64_t>(integerOf(value), 0, std::numeric_limits<std::uint32_t>::max());
      return sd_bus_message_append(message, "u", static_cast<std::uint32_t>(number));
    }
    case SD_BUS_TYPE_INT64:
      return sd_bus_message_append(message, "x", integerOf(value));
    case SD_BUS_TYPE_DOUBLE: {
      const auto* real = value.as<double>();
      return sd_bus_message_append(message, "d", real == nullptr ? 0.0 : *real);
    }
    default: {
      const auto* text = value.as<std::string>();
      return sd_bus_message_append(message, "s", text ? wellFormed(*text).c_str() : "");
    }
  }
}

// ---- Reading -----------------------------------------------------------------------------------

std::optional<PropertyList> read(sd_bus_message* message, int depth);

template <class T>
std::optional<PropertyList> readNumber(sd_bus_message* message, char type) {
  T number{};
  if (sd_bus_message_read_basic(message, type, &number) < 0) return std::nullopt;
  return PropertyList(static_cast<std::int64_t>(number));
}

std::optional<PropertyList> readBasic(sd_bus_message* message, char type) {
  switch (type) {
    case SD_BUS_TYPE_BYTE:
      return readNumber<std::uint8_t>(message, type);
    case SD_BUS_TYPE_INT16:
      return readNumber<std::int16_t>(message, type);
    case SD_BUS_TYPE_UINT16:
      return readNumber<std::uint16_t>(message, type);
    case SD_BUS_TYPE_INT32:
      return readNumber<std::int32_t>(message, type);
    case SD_BUS_TYPE_UINT32:
      return readNumber<std::uint32_t>(message, type);
    case SD_BUS_TYPE_INT64:
      return readNumber<std::int64_t>(message, type);
    case SD_BUS_TYPE_UINT64:
      return readNumber<std::uint64_t>(message, type);
    case SD_BUS_TYPE_BOOLEAN: {
      int truth = 0;
      if (sd_bus_message_read_basic(message, type, &truth) < 0) return std::nullopt;
      return PropertyList(truth != 0);
    }
    case SD_BUS_TYPE_DOUBLE: {
      double real = 0;
      if (sd_bus_message_read_basic(message, type, &real) < 0) return std::nullopt;
      return PropertyList(real);
    }
    case SD_BUS_TYPE_STRING:
    case SD_BUS_TYPE_OBJECT_PATH:
    case SD_BUS_TYPE_SIGNATURE: {
      const char* text = nullptr;
      if (sd_bus_message_read_basic(message, type, &text) < 0) return std::nullopt;
      return PropertyList(text);
    }
    default:
      return std::nullopt;
  }
}

/// The members of an array of entries whose keys are strings.
std::optional<PropertyList> readDictionary(sd_bus_message* message, int depth) {
  std::vector<PropertyList::Entry> entries;
  const char* contents = nullptr;
  while (sd_bus_message_peek_type(message, nullptr, &contents) > 0) {
    if (sd_bus_message_enter_container(message, SD_BUS_TYPE_DICT_ENTRY, contents) <= 0) {
      return std::nullopt;
    }
    auto key = read(message, depth);
    auto value = read(message, depth);
    auto* name = key ? key->as<std::string>() : nullptr;
    if (name == nullptr || !value || sd_bus_message_exit_container(message) < 0) {
      return std::nullopt;
    }
    entries.push_back({std::move(*name), std::move(*value)});
  }
  return PropertyList(PropertyList::Dictionary::fromEntries(std::move(entries)));
}

std::optional<PropertyList> readElements(sd_bus_message* message, int depth) {
  PropertyList::Array array;
  while (sd_bus_message_at_end(message, 0) == 0) {
    auto element = read(message, depth);
    if (!element) return std::nullopt;
    array.push_back(std::move(*element));
  }
  return PropertyList(std::move(array));
}

std::optional<PropertyList> read(sd_bus_message* message, int depth) {
  char type = 0;
  const char* contents = nullptr;
  if (sd_bus_message_peek_type(message, &type, &contents) <= 0 || depth > 4 * kDeepest) {
    return std::nullopt;
  }
  if (contents == nullptr) return readBasic(message, type);
  const bool isDictionary = type == SD_BUS_TYPE_ARRAY && *contents == SD_BUS_TYPE_DICT_ENTRY_BEGIN;
  if (sd_bus_message_enter_container(message, type, contents) <= 0) return std::nullopt;
  auto value = isDictionary                  ? readDictionary(message, depth + 1)
               : type == SD_BUS_TYPE_VARIANT ? read(message, depth + 1)
                                             : readElements(message, depth + 1);
  return value && sd_bus_message_exit_container(message) >= 0 ? std::move(value) : std::nullopt;
}

}  // namespace

int appendBusValue(sd_bus_message* message, const char* type, const PropertyList& value) {
  return append(message, type, value, 1);
}

int appendBusVariant(sd_bus_message* message, const char* type, const PropertyList& value) {
  return appendVariant(message, type == nullptr ? typeOf(value) : type, value, 1);
}

std::optional<PropertyList> readBusValue(sd_bus_message* message) {
  return read(message, 1);
}

}  // namespace kv
