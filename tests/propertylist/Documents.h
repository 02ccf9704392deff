#pragma once

#include <cstdint>
#include <ostream>
#include <string>
#include <string_view>
#include <vector>

#include "platform/PropertyList.h"
#include "platform/PropertyListWriter.h"

namespace kv {

/// Failures show the tree, not its bytes.
inline void PrintTo(const PropertyList& value, std::ostream* out) {
  *out << value.description() << '\n' << writePropertyList(value, PropertyListEncoding::kXml);
}

inline std::string xmlDocument(std::string_view content) {
  return "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<plist version=\"1.0\">" +
         std::string(content) + "</plist>\n";
}

inline std::string repeated(std::string_view text, std::size_t times) {
  std::string result;
  result.reserve(text.size() * times);
  for (std::size_t count = 0; count < times; ++count) result += text;
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
  static constexpr std::size_t kReferenceBytes = 2;

  std::vector<std::string> objects;
  std::uint64_t topObject = 0;
  std::size_t offsetBytes = 4;
  std::size_t referenceBytes = kReferenceBytes;
  /// Added to what is true.
  std::uint64_t extraCount = 0;
  std::uint64_t extraTableOffset = 0;
  std::uint64_t extraOffset = 0;

  /// The document, filled up between the objects and the offset table to `sizeBytes` at least.
  std::string bytes(std::size_t sizeBytes = 0) const {
    std::string text = "bplist00";
    std::string table;
    for (const std::string& object : objects) {
      table += bigEndian(text.size() + extraOffset, offsetBytes);
      text += object;
    }
    const std::size_t endBytes = table.size() + 32;
    if (text.size() + endBytes < sizeBytes) text.resize(sizeBytes - endBytes);
    const std::size_t tableOffset = text.size();
    text += table + std::string(6, '\0');
    text += bigEndian(offsetBytes, 1) + bigEndian(referenceBytes, 1);
    text += bigEndian(objects.size() + extraCount, 8) + bigEndian(topObject, 8);
    return text + bigEndian(tableOffset + extraTableOffset, 8);
  }

  /// An object's marker, with its count behind it when that needs more than four bits.
  static std::string marker(unsigned type, std::uint64_t count) {
    if (count < 15) return bigEndian(type << 4 | count, 1);
    return bigEndian(type << 4 | 15, 1) + "\x12" + bigEndian(count, 4);
  }

  static std::string text(std::string_view ascii) {
    return marker(0x5, ascii.size()) + std::string(ascii);
  }

  static std::string array(const std::vector<std::uint64_t>& references) {
    std::string object = marker(0xA, references.size());
    for (const std::uint64_t reference : references)
      object += bigEndian(reference, kReferenceBytes);
    return object;
  }

  static std::string dictionary(const std::vector<std::uint64_t>& keys,
                                const std::vector<std::uint64_t>& values) {
    std::string object = marker(0xD, keys.size());
    for (const std::uint64_t reference : keys) object += bigEndian(reference, kReferenceBytes);
    for (const std::uint64_t reference : values) object += bigEndian(reference, kReferenceBytes);
    return object;
  }
};

}  // namespace kv
