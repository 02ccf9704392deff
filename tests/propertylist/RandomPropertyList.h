#pragma once

#include <cmath>
#include <cstdint>
#include <random>
#include <string>

#include "platform/PropertyList.h"
#include "platform/PropertyListReader.h"
#include "platform/Utf8.h"

namespace kv {

/// Makes trees of everything that one encoding can hold, so that they must come back unchanged.
class RandomPropertyList {
 public:
  RandomPropertyList(std::uint64_t seed, PropertyListEncoding encoding)
      : random_(seed), encoding_(encoding) {}

  PropertyList tree(std::size_t depth = 0) {
    switch (below(depth < 6 ? 11 : 8)) {
      case 0:
        return below(2) == 0;
      case 1:
        return static_cast<std::int64_t>(random_()) >> below(64);
      case 2:
        return random_() >> below(3);
      case 3:
        return real();
      case 4:
        return Date{Seconds(dateSeconds())};
      case 5:
        return data();
      case 6:
        if (isXml()) return string();
        return PropertyList::Uid{random_() >> below(64)};
      case 7:
        return string();
      case 8:
        return array(depth);
      default:
        return dictionary(depth);
    }
  }

 private:
  bool isXml() const { return encoding_ == PropertyListEncoding::kXml; }
  std::size_t below(std::size_t bound) { return random_() % bound; }
  std::size_t smallCount() { return below(below(40) + 1); }

  /// Any bits but those of a NaN, which would be unequal to itself.
  double real() {
    const double value = std::bit_cast<double>(random_());
    return std::isnan(value) ? 0.1 : value;
  }

  double dateSeconds() {
    if (!isXml()) return real();
    return static_cast<double>(static_cast<std::int64_t>(random_() >> below(13)) % (1LL << 51));
  }

  PropertyList::Data data() {
    PropertyList::Data bytes(smallCount() * 5);
    for (std::uint8_t& byte : bytes) byte = static_cast<std::uint8_t>(random_());
    return bytes;
  }

  char32_t character() {
    constexpr char32_t kSpecial[] =
        U"\t\n\r <>&\"'\u007F\u0080\u07FF\u0800\uFFFD\U00010000\U0010FFFF";
    if (below(4) == 0) return kSpecial[below(std::size(kSpecial) - 1)];
    if (below(2) == 0) return static_cast<char32_t>('a' + below(26));
    const auto any = static_cast<char32_t>(1 + below(0x10FFFF));
    const bool isControl = any < 0x20 || any == 0xFFFE || any == 0xFFFF;
    const bool isSurrogate = any >= 0xD800 && any <= 0xDFFF;
    return isSurrogate || (isControl && isXml()) ? U'-' : any;
  }

  std::string string() {
    std::string text;
    for (std::size_t count = smallCount(); count > 0; --count) appendUtf8(text, character());
    return text;
  }

  PropertyList array(std::size_t depth) {
    PropertyList::Array elements;
    for (std::size_t count = smallCount(); count > 0; --count) elements.push_back(tree(depth + 1));
    return elements;
  }

  PropertyList dictionary(std::size_t depth) {
    PropertyList::Dictionary dictionary;
    for (std::size_t count = smallCount(); count > 0; --count) {
      dictionary.set(string(), tree(depth + 1));
    }
    return dictionary;
  }

  std::mt19937_64 random_;
  const PropertyListEncoding encoding_;
};

}  // namespace kv
