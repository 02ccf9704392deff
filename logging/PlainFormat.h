#pragma once

#include <fmt/compile.h>

#include <algorithm>
#include <array>
#include <bit>
#include <concepts>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <limits>
#include <string>
#include <string_view>
#include <utility>

/// Texts of formats whose fields are all "{}", each for a number or a string, as most log messages
/// are: their length is known before they are made, and what lies between the fields is copied by a
/// few moves. The texts are those that fmt makes, which checks the formats, too.
namespace kv::detail {

/// A format as it is shown: what lies between the fields, one after the other.
template <std::size_t kMostBytes>
struct PlainFormat {
  /// False for a field that is more than "{}", and for a brace that fmt does not take.
  bool isPlain = false;
  std::size_t fields = 0;
  std::array<char, kMostBytes + 1> literals{};
  /// Where the literals before each field end, and those behind the last one.
  std::array<std::size_t, kMostBytes + 1> ends{};
};

template <class Format>
consteval auto parsePlainFormat() {
  constexpr auto kText = static_cast<fmt::string_view>(Format());
  PlainFormat<kText.size()> parsed;
  std::size_t bytes = 0;
  for (std::size_t place = 0; place < kText.size(); ++place) {
    const char byte = kText[place];
    if (byte == '{' || byte == '}') {
      ++place;  // a brace that is shown is doubled
      const char next = place < kText.size() ? kText[place] : '\0';
      if (next != byte && !(byte == '{' && next == '}')) return parsed;
      if (next != byte) {
        parsed.ends[parsed.fields++] = bytes;
        continue;
      }
    }
    parsed.literals[bytes++] = byte;
  }
  parsed.ends[parsed.fields] = bytes;
  parsed.isPlain = true;
  return parsed;
}

template <class Format>
inline constexpr auto kPlainFormat = parsePlainFormat<Format>();
/// On their own: of all that was parsed they alone are needed when the program runs.
template <class Format>
inline constexpr auto kLiterals = kPlainFormat<Format>.literals;

template <class Argument>
concept QuicklyShown =
    (std::integral<Argument> && sizeof(Argument) <= sizeof(std::uint64_t)) ||
    std::same_as<Argument, std::string> || std::same_as<Argument, std::string_view>;

/// Whether the functions below are for this format with these arguments.
template <class Format, class... Arguments>
consteval bool isPlain() {
  constexpr auto& kParsed = kPlainFormat<Format>;
  return kParsed.isPlain && kParsed.fields == sizeof...(Arguments) &&
         (QuicklyShown<Arguments> && ...);
}

inline constexpr auto kPowersOfTen = [] {
  std::array<std::uint64_t, std::numeric_limits<std::uint64_t>::digits10 + 1> powers{1};
  for (std::size_t power = 1; power < powers.size(); ++power) {
    powers[power] = powers[power - 1] * 10;
  }
  return powers;
}();

constexpr std::size_t digitsOf(std::uint64_t number) {
  number |= 1;  // nought has a digit, too
  // As many as the number has bits, times the logarithm of two, or one more.
  const auto digits = static_cast<std::size_t>(std::bit_width(number)) * 1233 / 4096;
  return digits + (number >= kPowersOfTen[digits] ? 1 : 0);
}

template <std::integral Number>
constexpr std::size_t bytesOf(Number number) {
  if constexpr (std::same_as<Number, bool>) {
    return std::string_view(number ? "true" : "false").size();
  } else if constexpr (std::same_as<Number, char>) {
    return 1;
  } else if (number < 0) {
    return 1 + digitsOf(0 - static_cast<std::uint64_t>(number));
  } else {
    return digitsOf(static_cast<std::uint64_t>(number));
  }
}
constexpr std::size_t bytesOf(std::string_view text) {
  return text.size();
}

template <std::integral Number>
char* show(char* place, Number number) {
  return fmt::format_to(place, FMT_COMPILE("{}"), number);
}
inline char* show(char* place, std::string_view text) {
  return std::copy_n(text.data(), text.size(), place);
}

/// The literals before field `kField`; those behind the last one when there is none of that number.
template <class Format, std::size_t kField>
char* showLiterals(char* place) {
  constexpr auto& kParsed = kPlainFormat<Format>;
  constexpr std::size_t kBegin = kField == 0 ? 0 : kParsed.ends[kField - 1];
  constexpr std::size_t kBytes = kParsed.ends[kField] - kBegin;
  std::memcpy(place, kLiterals<Format>.data() + kBegin, kBytes);
  return place + kBytes;
}

template <class Format, class... Arguments>
constexpr std::size_t plainTextBytes(const Arguments&... arguments) {
  constexpr auto& kParsed = kPlainFormat<Format>;
  return (kParsed.ends[kParsed.fields] + ... + bytesOf(arguments));
}

/// Makes the text, of plainTextBytes(), at `place`.
template <class Format, std::size_t... kFields, class... Arguments>
void makePlainText(std::index_sequence<kFields...> /*each*/, char* place,
                   const Arguments&... arguments) {
  ((place = show(showLiterals<Format, kFields>(place), arguments)), ...);
  showLiterals<Format, sizeof...(Arguments)>(place);
}

}  // namespace kv::detail
