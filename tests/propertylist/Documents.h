#pragma once

#include <cstdint>
#include <optional>
#include <ostream>
#include <string>
#include <string_view>
#include <vector>

#include "platform/PropertyList.h"
#include "platform/PropertyListReader.h"
#include "platform/PropertyListWriter.h"

namespace kv {

using Array = PropertyList::Array;
using Data = PropertyList::Data;
using Dictionary = PropertyList::Dictionary;
using Uid = PropertyList::Uid;

inline constexpr PropertyListEncoding kXml = PropertyListEncoding::kXml;
inline constexpr PropertyListEncoding kBinary = PropertyListEncoding::kBinary;
inline constexpr std::nullopt_t kRefused = std::nullopt;

/// Failures show the tree, not its bytes.
inline void PrintTo(const PropertyList& value, std::ostream* out) {
  *out << value.description() << '\n' << writePropertyList(value, kXml);
}

inline std::string repeated(std::string_view text, std::size_t times) {
  std::string result;
  while (times-- > 0) result += text;
  return result;
}

inline std::string bigEndian(std::uint64_t number, std::size_t size) {
  std::string bytes;
  for (std::size_t index = size; index-- > 0;) {
    bytes += static_cast<char>(index < 8 ? number >> (8 * index) & 0xFF : 0);
  }
  return bytes;
}

/// A document of the compact encoding, put together object by object so that any part can lie.
struct BinaryDocument {
  using References = std::vector<std::uint64_t>;

  std::vector<std::string> objects;
  std::size_t offsetBytes = 4;
  std::size_t referenceBytes = 4;

  std::string bytes() const {
    std::string text = "bplist00";
    std::string table;
    for (const std::string& object : objects) {
      table += bigEndian(text.size(), offsetBytes);
      text += object;
    }
    const std::uint64_t tableOffset = text.size();
    return text + table + std::string(6, '\0') + bigEndian(offsetBytes, 1) +
           bigEndian(referenceBytes, 1) + bigEndian(objects.size(), 8) + bigEndian(0, 8) +
           bigEndian(tableOffset, 8);
  }

  /// An object's marker, with its count behind it.
  static std::string marker(unsigned type, std::uint64_t count) {
    return bigEndian(type << 4 | 15, 1) + "\x12" + bigEndian(count, 4);
  }

  static std::string array(const References& references) {
    std::string object = marker(0xA, references.size());
    for (const std::uint64_t reference : references) object += bigEndian(reference, 4);
    return object;
  }

  static std::string dictionary(const References& keys, const References& values) {
    return marker(0xD, keys.size()) + array(keys).substr(6) + array(values).substr(6);
  }
};

}  // namespace kv
