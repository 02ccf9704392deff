#include "platform/BinaryPropertyListReader.h"

#include <bit>
#include <cstdint>
#include <limits>
#include <string>
#include <utility>
#include <vector>

#include "platform/PropertyListBudget.h"
#include "platform/Utf8.h"

namespace kv {
namespace {

constexpr std::string_view kHeader = "bplist00";
constexpr std::size_t kTrailerBytes = 32;
constexpr std::size_t kMaximumIntegerBytes = 8;

std::uint8_t byteAt(std::string_view bytes, std::size_t index) {
  return static_cast<std::uint8_t>(bytes[index]);
}

/// The big-endian number that `bytes`, at most eight of them, hold.
std::uint64_t bigEndian(std::string_view bytes) {
  std::uint64_t number = 0;
  for (const char byte : bytes) number = number << 8 | static_cast<std::uint8_t>(byte);
  return number;
}

/// An object's first byte says its type and, in the low half, its size or that a size follows.
struct Marker {
  std::uint8_t type;
  std::uint8_t low;
};

/// Walks the objects from the root down, building the tree as it goes.
///
/// An object that is referred to several times is read several times: the budget, charged before
/// anything is allocated, bounds that. A cycle needs no check of its own, since the walk goes
/// along it and meets the limit on depth.
class BinaryReader {
 public:
  BinaryReader(std::string_view bytes, const PropertyListLimits& limits)
      : bytes_(bytes), maximumDepth_(limits.depth), budget_(limits) {}

  std::optional<PropertyList> read() {
    if (!readTrailer()) return std::nullopt;
    PropertyList root;
    if (!takeValues(1) || !readObject(topObject_, 1, root)) return std::nullopt;
    return root;
  }

 private:
  bool readTrailer() {
    if (bytes_.size() < kHeader.size() + kTrailerBytes || !bytes_.starts_with(kHeader)) {
      return false;
    }
    const std::string_view trailer = bytes_.substr(bytes_.size() - kTrailerBytes);
    objects_ = bytes_.substr(0, bytes_.size() - kTrailerBytes);
    offsetBytes_ = byteAt(trailer, 6);
    referenceBytes_ = byteAt(trailer, 7);
    objectCount_ = bigEndian(trailer.substr(8, 8));
    topObject_ = bigEndian(trailer.substr(16, 8));
    const std::uint64_t tableOffset = bigEndian(trailer.substr(24, 8));
    if (offsetBytes_ < 1 || offsetBytes_ > kMaximumIntegerBytes || referenceBytes_ < 1 ||
        referenceBytes_ > kMaximumIntegerBytes || tableOffset < kHeader.size() ||
        tableOffset > objects_.size() ||
        objectCount_ > (objects_.size() - tableOffset) / offsetBytes_) {
      return false;
    }
    offsetTable_ = objects_.substr(tableOffset, objectCount_ * offsetBytes_);
    return true;
  }

  bool takeValues(std::size_t count) {
    return budget_.takeNodes(count) && budget_.takeBytes(count * PropertyListBudget::kValueBytes);
  }

  bool takeKeys(std::size_t count) {
    return budget_.takeBytes(count * PropertyListBudget::kKeyBytes);
  }

  /// Points `rest` at what follows the object's marker.
  bool findObject(std::uint64_t reference, Marker& marker, std::string_view& rest) const {
    if (reference >= objectCount_) return false;
    const std::uint64_t offset =
        bigEndian(offsetTable_.substr(reference * offsetBytes_, offsetBytes_));
    if (offset < kHeader.size() || offset >= objects_.size()) return false;
    const std::uint8_t first = byteAt(objects_, offset);
    marker = {static_cast<std::uint8_t>(first >> 4), static_cast<std::uint8_t>(first & 0xF)};
    rest = objects_.substr(offset + 1);
    return true;
  }

  bool readObject(std::uint64_t reference, std::size_t depth, PropertyList& value) {
    Marker marker;
    std::string_view rest;
    if (depth > maximumDepth_ || !findObject(reference, marker, rest)) return false;
    switch (marker.type) {
      case 0x0:
        if (marker.low != 8 && marker.low != 9) return false;
        value = marker.low == 9;
        return true;
      case 0x1:
        return readInteger(marker.low, rest, value);
      case 0x2:
        return readReal(marker.low, rest, value);
      case 0x3:
        return readDate(marker.low, rest, value);
      case 0x4:
        return readData(marker.low, rest, value);
      case 0x5:
      case 0x6: {
        std::string text;
        if (!readString(marker, rest, text)) return false;
        value = std::move(text);
        return true;
      }
      case 0x8:
        return readUid(marker.low, rest, value);
      case 0xA:
        return readArray(marker.low, rest, depth, value);
      case 0xD:
        return readDictionary(marker.low, rest, depth, value);
      default:
        return false;
    }
  }

  /// Integers of one to four bytes have no sign, longer ones have; 16 bytes clamp to 64 bits.
  static bool readInteger(std::uint8_t low, std::string_view rest, PropertyList& value) {
    const std::size_t size = std::size_t{1} << low;
    if (low > 4 || size > rest.size()) return false;
    if (low < 4) {
      const std::uint64_t number = bigEndian(rest.substr(0, size));
      value = static_cast<std::int64_t>(number);
      return true;
    }
    const auto high = static_cast<std::int64_t>(bigEndian(rest.substr(0, 8)));
    const std::uint64_t number = bigEndian(rest.substr(8, 8));
    constexpr std::uint64_t kSignBit = std::uint64_t{1} << 63;
    if (high >= 0) {
      value = high == 0 ? number : std::numeric_limits<std::uint64_t>::max();
    } else {
      value = high == -1 && number >= kSignBit ? static_cast<std::int64_t>(number)
                                               : std::numeric_limits<std::int64_t>::min();
    }
    return true;
  }

  static bool readReal(std::uint8_t low, std::string_view rest, PropertyList& value) {
    const std::size_t size = std::size_t{1} << low;
    if ((low != 2 && low != 3) || size > rest.size()) return false;
    const std::uint64_t bits = bigEndian(rest.substr(0, size));
    value = low == 2 ? double{std::bit_cast<float>(static_cast<std::uint32_t>(bits))}
                     : std::bit_cast<double>(bits);
    return true;
  }

  static bool readDate(std::uint8_t low, std::string_view rest, PropertyList& value) {
    if (low != 3 || rest.size() < 8) return false;
    value = Date{Seconds(std::bit_cast<double>(bigEndian(rest.substr(0, 8))))};
    return true;
  }

  /// Up to 16 bytes; a number beyond 64 bits names no object of any archive.
  static bool readUid(std::uint8_t low, std::string_view rest, PropertyList& value) {
    const std::size_t size = std::size_t{low} + 1;
    if (size > rest.size()) return false;
    const std::size_t highBytes = size > 8 ? size - 8 : 0;
    if (bigEndian(rest.substr(0, highBytes)) != 0) return false;
    value = PropertyList::Uid{bigEndian(rest.substr(highBytes, size - highBytes))};
    return true;
  }

  /// Reads the count of an object's units and leaves `rest` with at least as many of them.
  static bool readCount(std::uint8_t low, std::size_t unitBytes, std::string_view& rest,
                        std::size_t& count) {
    std::uint64_t number = low;
    if (low == 0xF) {
      if (rest.empty() || byteAt(rest, 0) >> 4 != 0x1 || (byteAt(rest, 0) & 0xF) > 3) return false;
      const std::size_t size = std::size_t{1} << (byteAt(rest, 0) & 0xF);
      if (size >= rest.size()) return false;
      number = bigEndian(rest.substr(1, size));
      rest.remove_prefix(1 + size);
    }
    if (number > rest.size() / unitBytes) return false;
    count = static_cast<std::size_t>(number);
    return true;
  }

  bool readData(std::uint8_t low, std::string_view rest, PropertyList& value) {
    std::size_t size = 0;
    if (!readCount(low, 1, rest, size) ||
        !budget_.takeBytes(size + PropertyListBudget::kHeapOverheadBytes)) {
      return false;
    }
    value = PropertyList::Data(rest.begin(), rest.begin() + static_cast<std::ptrdiff_t>(size));
    return true;
  }

  bool readString(Marker marker, std::string_view rest, std::string& text) {
    std::size_t size = 0;
    if (marker.type == 0x6) {
      return readCount(marker.low, 2, rest, size) && readUtf16(rest.substr(0, size * 2), text);
    }
    if (!readCount(marker.low, 1, rest, size) ||
        !budget_.takeBytes(PropertyListBudget::payloadBytes(size))) {
      return false;
    }
    rest = rest.substr(0, size);
    for (const char byte : rest) {
      if (static_cast<signed char>(byte) <= 0) return false;  // U+0000, or beyond ASCII
    }
    text = rest;
    return true;
  }

  static char32_t unitAt(std::string_view units, std::size_t index) {
    return static_cast<char32_t>(byteAt(units, index) << 8 | byteAt(units, index + 1));
  }

  /// Refuses U+0000 and lone surrogates. The first pass finds the exact size, so that nothing is
  /// allocated before it is paid for.
  bool readUtf16(std::string_view units, std::string& text) {
    std::size_t size = 0;
    for (std::size_t index = 0; index < units.size(); index += 2) {
      const char32_t unit = unitAt(units, index);
      if (unit == 0) return false;
      if (unit < 0xD800 || unit > 0xDFFF) {
        size += unit < 0x80 ? 1 : unit < 0x800 ? 2 : 3;
        continue;
      }
      index += 2;
      const bool paired =
          unit < 0xDC00 && index < units.size() && (unitAt(units, index) >> 10) == 0x37;
      if (!paired) return false;
      size += 4;
    }
    if (!budget_.takeBytes(PropertyListBudget::payloadBytes(size))) return false;
    text.reserve(size);
    for (std::size_t index = 0; index < units.size(); index += 2) {
      char32_t character = unitAt(units, index);
      if (character >= 0xD800 && character <= 0xDFFF) {
        index += 2;
        character = 0x10000 + ((character & 0x3FF) << 10 | (unitAt(units, index) & 0x3FF));
      }
      appendUtf8(text, character);
    }
    return true;
  }

  std::uint64_t referenceAt(std::string_view references, std::size_t index) const {
    return bigEndian(references.substr(index * referenceBytes_, referenceBytes_));
  }

  bool readArray(std::uint8_t low, std::string_view rest, std::size_t depth, PropertyList& value) {
    std::size_t count = 0;
    if (!readCount(low, referenceBytes_, rest, count) || !takeValues(count)) return false;
    PropertyList::Array elements(count);
    for (std::size_t index = 0; index < count; ++index) {
      if (!readObject(referenceAt(rest, index), depth + 1, elements[index])) return false;
    }
    value = std::move(elements);
    return true;
  }

  bool readDictionary(std::uint8_t low, std::string_view rest, std::size_t depth,
                      PropertyList& value) {
    std::size_t count = 0;
    if (!readCount(low, 2 * referenceBytes_, rest, count) || !takeKeys(count) ||
        !takeValues(count)) {
      return false;
    }
    std::vector<PropertyList::Entry> entries(count);
    for (std::size_t index = 0; index < count; ++index) {
      PropertyList::Entry& entry = entries[index];
      Marker marker;
      std::string_view key;
      const bool isRead = findObject(referenceAt(rest, index), marker, key) &&
                          (marker.type == 0x5 || marker.type == 0x6) &&
                          readString(marker, key, entry.key) &&
                          readObject(referenceAt(rest, count + index), depth + 1, entry.value);
      if (!isRead) return false;
    }
    value = PropertyList::Dictionary::fromEntries(std::move(entries));
    return true;
  }

  const std::string_view bytes_;
  const std::size_t maximumDepth_;
  PropertyListBudget budget_;

  /// All but the trailer: where objects and the offset table may lie.
  std::string_view objects_;
  std::string_view offsetTable_;
  std::size_t offsetBytes_ = 0;
  std::size_t referenceBytes_ = 0;
  std::uint64_t objectCount_ = 0;
  std::uint64_t topObject_ = 0;
};

}  // namespace

std::optional<PropertyList> readBinaryPropertyList(std::string_view bytes,
                                                   const PropertyListLimits& limits) {
  return BinaryReader(bytes, limits).read();
}

}  // namespace kv
