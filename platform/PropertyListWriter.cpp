#include "platform/PropertyListWriter.h"

#include <fmt/format.h>

#include <algorithm>
#include <bit>
#include <charconv>
#include <cmath>
#include <iterator>
#include <limits>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "platform/CivilTime.h"
#include "platform/Utf8.h"

namespace kv {
namespace {

/// Writes the XML encoding, one element a line.
///
/// What XML cannot hold is written as the nearest that it can: characters that are no XML
/// characters (controls but tab and line ends, U+FFFE, U+FFFF) and bytes that are no UTF-8 become
/// U+FFFD; a uid becomes a dictionary with the key "CF$UID"; dates lose their fraction of a
/// second, those beyond the years ±99,999,999 become the last of them, and a date that is no
/// number becomes the reference date; the bits of a NaN are lost.
class XmlWriter {
 public:
  std::string write(const PropertyList& root) {
    text_ =
        "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"
        "<!DOCTYPE plist PUBLIC \"-//Apple//DTD PLIST 1.0//EN\" "
        "\"http://www.apple.com/DTDs/PropertyList-1.0.dtd\">\n"
        "<plist version=\"1.0\">\n";
    root.visit(*this);
    text_ += "</plist>\n";
    return std::move(text_);
  }

  void operator()(const PropertyList::String& value) { textElement("string", value); }
  void operator()(bool value) { line(value ? "<true/>" : "<false/>"); }
  void operator()(std::int64_t value) { numberElement("integer", value); }
  void operator()(std::uint64_t value) { numberElement("integer", value); }

  void operator()(double value) {
    if (std::isfinite(value)) {
      numberElement("real", value);  // the shortest text that reads as the same number
    } else {
      textElement("real", std::isnan(value) ? "nan" : value > 0 ? "+infinity" : "-infinity");
    }
  }

  void operator()(Date value) {
    double seconds = std::floor(value.unixSeconds());
    if (std::isnan(seconds)) seconds = Date::kReferenceInUnixSeconds;
    seconds = std::clamp(seconds, static_cast<double>(CivilTime::earliestUnixSeconds()),
                         static_cast<double>(CivilTime::latestUnixSeconds()));
    const CivilTime time = CivilTime::fromUnixSeconds(static_cast<std::int64_t>(seconds));
    indent();
    fmt::format_to(std::back_inserter(text_),
                   "<date>{}{:04}-{:02}-{:02}T{:02}:{:02}:{:02}Z</date>\n",
                   time.year < 0 ? "-" : "", std::abs(time.year), time.month, time.day, time.hour,
                   time.minute, time.second);
  }

  void operator()(PropertyList::Uid value) {
    line("<dict>");
    ++depth_;
    textElement("key", "CF$UID");
    numberElement("integer", value.value);
    --depth_;
    line("</dict>");
  }

  void operator()(const PropertyList::Data& value) {
    line("<data>");
    constexpr std::size_t kBytesPerLine = 57;  // 76 digits
    for (std::size_t first = 0; first < value.size(); first += kBytesPerLine) {
      indent();
      const std::size_t end = std::min(first + kBytesPerLine, value.size());
      for (std::size_t index = first; index < end; index += 3) appendBase64(value, index);
      text_ += '\n';
    }
    line("</data>");
  }

  void operator()(const PropertyList::Array& value) {
    if (value.empty()) return line("<array/>");
    line("<array>");
    ++depth_;
    for (const PropertyList& element : value) element.visit(*this);
    --depth_;
    line("</array>");
  }

  void operator()(const PropertyList::Dictionary& value) {
    if (value.empty()) return line("<dict/>");
    line("<dict>");
    ++depth_;
    for (const PropertyList::Entry& entry : value) {
      textElement("key", entry.key);
      entry.value.visit(*this);
    }
    --depth_;
    line("</dict>");
  }

 private:
  /// Deeper lines are not indented further, so that the text stays in proportion to the tree.
  static constexpr std::size_t kMaximumIndentation = 16;

  void indent() { text_.append(std::min(depth_, kMaximumIndentation), '\t'); }

  void line(std::string_view tag) {
    indent();
    text_.append(tag) += '\n';
  }

  void textElement(std::string_view tag, std::string_view content) {
    indent();
    text_.append("<").append(tag) += '>';
    appendEscaped(content);
    text_.append("</").append(tag).append(">\n");
  }

  template <class Number>
  void numberElement(std::string_view tag, Number value) {
    char digits[32];
    const auto result = std::to_chars(std::begin(digits), std::end(digits), value);
    textElement(tag, {digits, static_cast<std::size_t>(result.ptr - digits)});
  }

  void appendEscaped(std::string_view content) {
    while (!content.empty()) {
      const auto isPlain = [](char byte) {
        const auto code = static_cast<unsigned char>(byte);
        return code >= 0x20 && code < 0x80 && byte != '&' && byte != '<' && byte != '>';
      };
      const auto special = std::find_if_not(content.begin(), content.end(), isPlain);
      text_.append(content.begin(), special);
      content.remove_prefix(static_cast<std::size_t>(special - content.begin()));
      if (!content.empty()) appendEscaped(takeUtf8(content));
    }
  }

  void appendEscaped(char32_t character) {
    switch (character) {
      case '&':
        text_ += "&amp;";
        return;
      case '<':
        text_ += "&lt;";
        return;
      case '>':
        text_ += "&gt;";
        return;
      case '\r':  // as it stands it would be read as a line feed
        text_ += "&#13;";
        return;
      default:
        break;
    }
    const bool isAllowed = character >= 0x20 ? character != 0xFFFE && character != 0xFFFF
                                             : character == '\t' || character == '\n';
    appendUtf8(text_, isAllowed ? character : kReplacementCharacter);
  }

  void appendBase64(const PropertyList::Data& data, std::size_t first) {
    constexpr char kDigits[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
    const std::size_t size = std::min<std::size_t>(3, data.size() - first);
    std::uint32_t bits = 0;
    for (std::size_t index = 0; index < 3; ++index) {
      bits = bits << 8 | (index < size ? data[first + index] : 0u);
    }
    for (std::size_t index = 0; index < 4; ++index) {
      text_ += index <= size ? kDigits[bits >> (18 - 6 * index) & 0x3F] : '=';
    }
  }

  std::string text_;
  std::size_t depth_ = 0;
};

/// Writes the compact encoding: each object once, in breadth-first order, equal strings shared.
///
/// Bytes that are no UTF-8, and U+0000, which no reader takes, become U+FFFD.
class BinaryWriter {
 public:
  std::string write(const PropertyList& root) {
    number(root);
    // Numbering a container's members appends them to `objects_`, so the loop reaches all.
    for (std::size_t index = 0; index < objects_.size(); ++index) numberMembers(index);
    referenceBytes_ = bytesFor(objects_.size());
    bytes_ = "bplist00";
    std::vector<std::size_t> offsets;
    offsets.reserve(objects_.size());
    for (const Object& object : objects_) {
      offsets.push_back(bytes_.size());
      if (object.value == nullptr) {
        (*this)(*object.string);
      } else {
        references_ = object.references;
        object.value->visit(*this);
      }
    }
    const std::size_t tableOffset = bytes_.size();
    const std::size_t offsetBytes = bytesFor(tableOffset);
    for (const std::size_t offset : offsets) append(offset, offsetBytes);
    append(0, 6);
    append(offsetBytes, 1);
    append(referenceBytes_, 1);
    append(objects_.size(), 8);
    append(0, 8);  // the root is the first object
    append(tableOffset, 8);
    return std::move(bytes_);
  }

  void operator()(const PropertyList::String& value) {
    const auto isAscii = [](char byte) { return static_cast<signed char>(byte) > 0; };
    if (std::all_of(value.begin(), value.end(), isAscii)) {
      appendMarker(0x5, value.size());
      bytes_ += value;
      return;
    }
    std::u16string units;
    for (std::string_view rest = value; !rest.empty();) {
      char32_t character = takeUtf8(rest);
      if (character == 0) character = kReplacementCharacter;
      if (character >= 0x10000) {
        units += static_cast<char16_t>(0xD800 | (character - 0x10000) >> 10);
        character = 0xDC00 | (character & 0x3FF);
      }
      units += static_cast<char16_t>(character);
    }
    appendMarker(0x6, units.size());
    for (const char16_t unit : units) append(unit, 2);
  }

  void operator()(bool value) { append(value ? 0x09 : 0x08, 1); }

  void operator()(std::int64_t value) {
    // Only integers of eight bytes have a sign.
    if (value < 0) {
      append(0x13, 1);
      append(static_cast<std::uint64_t>(value), 8);
    } else {
      appendInteger(static_cast<std::uint64_t>(value));
    }
  }

  void operator()(std::uint64_t value) { appendInteger(value); }

  void operator()(double value) {
    append(0x23, 1);
    append(std::bit_cast<std::uint64_t>(value), 8);
  }

  void operator()(Date value) {
    append(0x33, 1);
    append(std::bit_cast<std::uint64_t>(value.sinceReference.count()), 8);
  }

  void operator()(PropertyList::Uid value) {
    const std::size_t size = bytesFor(value.value);
    append(0x80 | (size - 1), 1);
    append(value.value, size);
  }

  void operator()(const PropertyList::Data& value) {
    appendMarker(0x4, value.size());
    bytes_.append(value.begin(), value.end());
  }

  void operator()(const PropertyList::Array& value) { appendContainer(0xA, value.size(), 1); }
  void operator()(const PropertyList::Dictionary& value) { appendContainer(0xD, value.size(), 2); }

 private:
  /// A value, or a dictionary's key (then only `string` is set).
  struct Object {
    const PropertyList* value;
    const std::string* string;
    /// Of a container: where the numbers of its members begin in `memberNumbers_`.
    std::size_t references = 0;
  };

  static std::size_t bytesFor(std::uint64_t number) {
    return number <= 0xFF ? 1 : number <= 0xFFFF ? 2 : number <= 0xFFFF'FFFF ? 4 : 8;
  }

  std::size_t numberString(const std::string& string, const PropertyList* value) {
    const auto [found, isNew] = stringNumbers_.try_emplace(string, objects_.size());
    if (isNew) objects_.push_back({value, &string});
    return found->second;
  }

  std::size_t number(const PropertyList& value) {
    if (const auto* string = value.as<PropertyList::String>()) return numberString(*string, &value);
    objects_.push_back({&value, nullptr});
    return objects_.size() - 1;
  }

  void numberMembers(std::size_t index) {
    objects_[index].references = memberNumbers_.size();
    const PropertyList* const value = objects_[index].value;
    if (value == nullptr) return;
    if (const auto* array = value->as<PropertyList::Array>()) {
      for (const PropertyList& element : *array) memberNumbers_.push_back(number(element));
    } else if (const auto* dictionary = value->as<PropertyList::Dictionary>()) {
      for (const auto& entry : *dictionary) {
        memberNumbers_.push_back(numberString(entry.key, nullptr));
      }
      for (const auto& entry : *dictionary) memberNumbers_.push_back(number(entry.value));
    }
  }

  void append(std::uint64_t number, std::size_t size) {
    for (std::size_t index = size; index-- > 0;) {
      bytes_ += static_cast<char>(index < 8 ? number >> (8 * index) & 0xFF : 0);
    }
  }

  void appendInteger(std::uint64_t value) {
    if (value > static_cast<std::uint64_t>(std::numeric_limits<std::int64_t>::max())) {
      append(0x14, 1);
      append(value, 16);
      return;
    }
    const std::size_t size = bytesFor(value);
    append(0x10 | static_cast<std::uint64_t>(std::countr_zero(size)), 1);
    append(value, size);
  }

  void appendMarker(std::uint64_t type, std::size_t count) {
    append(type << 4 | std::min<std::size_t>(count, 0xF), 1);
    if (count >= 0xF) appendInteger(count);
  }

  void appendContainer(std::uint64_t type, std::size_t count, std::size_t referencesEach) {
    appendMarker(type, count);
    for (std::size_t index = 0; index < count * referencesEach; ++index) {
      append(memberNumbers_[references_ + index], referenceBytes_);
    }
  }

  std::vector<Object> objects_;
  std::vector<std::size_t> memberNumbers_;
  std::unordered_map<std::string_view, std::size_t> stringNumbers_;
  std::size_t referenceBytes_ = 0;
  /// Of the container that is being written.
  std::size_t references_ = 0;
  std::string bytes_;
};

}  // namespace

std::string writePropertyList(const PropertyList& value, PropertyListEncoding encoding) {
  return encoding == PropertyListEncoding::kXml ? XmlWriter().write(value)
                                                : BinaryWriter().write(value);
}

}  // namespace kv
