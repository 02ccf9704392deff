#include "platform/XmlPropertyListReader.h"

#include <expat.h>

#include <algorithm>
#include <array>
#include <bit>
#include <charconv>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "platform/CivilTime.h"
#include "platform/PropertyListBudget.h"

namespace kv {
namespace {

constexpr bool isBlank(char character) {
  return character == ' ' || character == '\t' || character == '\n' || character == '\r';
}

bool isBlank(std::string_view text) {
  return std::all_of(text.begin(), text.end(), [](char character) { return isBlank(character); });
}

std::string_view trimmed(std::string_view text) {
  while (!text.empty() && isBlank(text.front())) text.remove_prefix(1);
  while (!text.empty() && isBlank(text.back())) text.remove_suffix(1);
  return text;
}

/// Takes a sign off `text`; true when it was a minus.
bool takeSign(std::string_view& text) {
  const bool negative = text.starts_with('-');
  if (negative || text.starts_with('+')) text.remove_prefix(1);
  return negative;
}

/// Decimal, or hexadecimal after "0x"; what no 64 bits can hold becomes the nearest that they can.
std::optional<PropertyList> parseInteger(std::string_view text) {
  text = trimmed(text);
  const bool negative = takeSign(text);
  const bool hexadecimal = text.starts_with("0x") || text.starts_with("0X");
  if (hexadecimal) text.remove_prefix(2);
  std::uint64_t magnitude = 0;
  const char* const end = text.data() + text.size();
  const auto result = std::from_chars(text.data(), end, magnitude, hexadecimal ? 16 : 10);
  if (result.ptr != end || result.ec == std::errc::invalid_argument) return std::nullopt;
  if (result.ec == std::errc::result_out_of_range) {
    magnitude = std::numeric_limits<std::uint64_t>::max();
  }
  if (!negative) return PropertyList(magnitude);
  constexpr std::uint64_t kLowest = std::uint64_t{1} << 63;
  return PropertyList(static_cast<std::int64_t>(0 - std::min(magnitude, kLowest)));
}

/// Whether a decimal number beyond the range of double is too large for it, not too small.
bool isTooLarge(std::string_view digits) {
  const std::size_t exponentMark = std::min(digits.find_first_of("eE"), digits.size());
  std::string_view exponentText = digits.substr(std::min(exponentMark + 1, digits.size()));
  const bool negative = takeSign(exponentText);
  std::int64_t exponent = 0;
  const auto result =
      std::from_chars(exponentText.data(), exponentText.data() + exponentText.size(), exponent);
  if (result.ec == std::errc::result_out_of_range) return !negative;
  const std::size_t first = digits.find_first_not_of("0.");
  const std::size_t point = std::min(digits.find('.'), exponentMark);
  const auto place = static_cast<std::int64_t>(point) - static_cast<std::int64_t>(first);
  return place + (negative ? -exponent : exponent) > 0;
}

std::optional<PropertyList> parseReal(std::string_view text) {
  text = trimmed(text);
  const bool negative = takeSign(text);
  if (text.starts_with('-')) return std::nullopt;
  double value = 0;
  const char* const end = text.data() + text.size();
  const auto result = std::from_chars(text.data(), end, value);
  if (result.ptr != end || result.ec == std::errc::invalid_argument) return std::nullopt;
  if (result.ec == std::errc::result_out_of_range) {
    value = isTooLarge(text) ? std::numeric_limits<double>::infinity() : 0.0;
  }
  if (std::isnan(value)) return PropertyList(std::numeric_limits<double>::quiet_NaN());
  return PropertyList(negative ? -value : value);
}

/// Reads the date fields of "2024-03-05T09:30:00Z", which may end after any of day, hour and
/// minute; years may have a sign and more digits, as writePropertyList gives them.
std::optional<PropertyList> parseDate(std::string_view text) {
  text = trimmed(text);
  const bool negative = takeSign(text);
  const std::size_t yearDigits = std::min(text.find('-'), text.size());
  if (yearDigits < 4 || yearDigits > 8) return std::nullopt;
  CivilTime time;
  const auto takeNumber = [&text](std::size_t digits, auto& number) {
    if (text.size() < digits || text[0] < '0' || text[0] > '9') return false;
    const auto result = std::from_chars(text.data(), text.data() + digits, number);
    text.remove_prefix(digits);
    return result.ptr == text.data();
  };
  const auto takeField = [&](char separator, int& number) {
    if (!text.starts_with(separator)) return false;
    text.remove_prefix(1);
    return takeNumber(2, number);
  };
  const bool hasDay =
      takeNumber(yearDigits, time.year) && takeField('-', time.month) && takeField('-', time.day);
  if (!hasDay) return std::nullopt;
  const bool hasHour = takeField('T', time.hour);
  const bool hasMinute = hasHour && takeField(':', time.minute);
  if (hasMinute) takeField(':', time.second);
  // A field that is there but malformed has left something before the final "Z".
  if (text != "Z") return std::nullopt;
  if (negative) time.year = -time.year;
  const std::optional<std::int64_t> seconds = time.unixSeconds();
  if (!seconds) return std::nullopt;
  return PropertyList(Date::fromUnixSeconds(static_cast<double>(*seconds)));
}

constexpr std::uint8_t kNotBase64 = 64;
constexpr std::array<std::uint8_t, 256> kBase64Values = [] {
  constexpr std::string_view kAlphabet =
      "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
  std::array<std::uint8_t, 256> values{};
  values.fill(kNotBase64);
  for (std::size_t index = 0; index < kAlphabet.size(); ++index) {
    values[static_cast<unsigned char>(kAlphabet[index])] = static_cast<std::uint8_t>(index);
  }
  return values;
}();

/// Base64 with its padding and with blanks anywhere.
std::optional<PropertyList::Data> parseData(std::string_view text) {
  PropertyList::Data data;
  data.reserve(text.size() / 4 * 3);
  std::uint32_t bits = 0;
  std::size_t digits = 0;
  std::size_t padding = 0;
  for (const char character : text) {
    if (isBlank(character)) continue;
    const std::uint8_t value = kBase64Values[static_cast<unsigned char>(character)];
    if (character == '=') {
      ++padding;
      continue;
    }
    if (value == kNotBase64 || padding > 0) return std::nullopt;
    bits = bits << 6 | value;
    if (++digits % 4 == 0) {
      data.insert(data.end(), {static_cast<std::uint8_t>(bits >> 16),
                               static_cast<std::uint8_t>(bits >> 8 & 0xFF),
                               static_cast<std::uint8_t>(bits & 0xFF)});
      bits = 0;
    }
  }
  const std::size_t tail = digits % 4;
  if (tail == 1 || padding != (tail == 0 ? 0 : 4 - tail)) return std::nullopt;
  if (tail >= 2) data.push_back(static_cast<std::uint8_t>(bits >> (tail == 2 ? 4 : 10) & 0xFF));
  if (tail == 3) data.push_back(static_cast<std::uint8_t>(bits >> 2 & 0xFF));
  return data;
}

/// Lets expat allocate from the budget of the document that it reads on this thread, so that
/// attributes, declarations and endless tokens end like any other excess.
class ParserMemory {
 public:
  explicit ParserMemory(PropertyListBudget& budget) { current = &budget; }
  ~ParserMemory() { current = nullptr; }
  ParserMemory(const ParserMemory&) = delete;
  ParserMemory& operator=(const ParserMemory&) = delete;

  static constexpr XML_Memory_Handling_Suite suite() { return {allocate, reallocate, release}; }

 private:
  /// Precedes each block and keeps its size.
  struct alignas(std::max_align_t) BlockHeader {
    std::size_t size;
  };
  static constexpr std::size_t kCost = sizeof(BlockHeader) + PropertyListBudget::kHeapOverheadBytes;

  static void* allocate(std::size_t size) { return reallocate(nullptr, size); }

  static void* reallocate(void* block, std::size_t size) {
    BlockHeader* const old = headerOf(block);
    if (size > std::numeric_limits<std::size_t>::max() - kCost) return nullptr;
    if (!current->takeBytes(size + kCost)) return nullptr;
    const std::size_t oldCost = old == nullptr ? 0 : old->size + kCost;
    auto* const header = static_cast<BlockHeader*>(std::realloc(old, sizeof(BlockHeader) + size));
    if (header == nullptr) {
      current->giveBytesBack(size + kCost);
      return nullptr;
    }
    current->giveBytesBack(oldCost);
    header->size = size;
    return header + 1;
  }

  static void release(void* block) {
    if (BlockHeader* const header = headerOf(block)) {
      current->giveBytesBack(header->size + kCost);
      std::free(header);
    }
  }

  static BlockHeader* headerOf(void* block) {
    return block == nullptr ? nullptr : static_cast<BlockHeader*>(block) - 1;
  }

  static inline thread_local PropertyListBudget* current = nullptr;
};

enum class Element {
  kNone,
  kPlist,
  kDictionary,
  kArray,
  kKey,
  kString,
  kInteger,
  kReal,
  kDate,
  kData,
  kTrue,
  kFalse,
};

/// The up to eight characters of an element's name as one number; 0 for longer names.
constexpr std::uint64_t packed(const char* name) {
  std::uint64_t number = 0;
  for (std::size_t length = 0; length < 8; ++length) {
    if (name[length] == '\0') return number;
    number = number << 8 | static_cast<unsigned char>(name[length]);
  }
  return name[8] == '\0' ? number : 0;
}

Element elementNamed(const char* name) {
  switch (packed(name)) {
    case packed("plist"):
      return Element::kPlist;
    case packed("dict"):
      return Element::kDictionary;
    case packed("array"):
      return Element::kArray;
    case packed("key"):
      return Element::kKey;
    case packed("string"):
      return Element::kString;
    case packed("integer"):
      return Element::kInteger;
    case packed("real"):
      return Element::kReal;
    case packed("date"):
      return Element::kDate;
    case packed("data"):
      return Element::kData;
    case packed("true"):
      return Element::kTrue;
    case packed("false"):
      return Element::kFalse;
    default:
      return Element::kNone;
  }
}

/// Builds the tree from the parser's events.
///
/// Values and keys wait on two stacks until their container closes, which then takes them in one
/// block of the exact size. The first fault stops the parser; events that it still reports after
/// that are ignored.
class XmlReader {
 public:
  XmlReader(std::string_view bytes, const PropertyListLimits& limits)
      : bytes_(bytes), maximumDepth_(limits.depth), budget_(limits), memory_(budget_) {
    const XML_Memory_Handling_Suite suite = ParserMemory::suite();
    parser_.reset(XML_ParserCreate_MM(nullptr, &suite, nullptr));
  }

  std::optional<PropertyList> read() {
    if (parser_ == nullptr) return std::nullopt;
    XML_SetUserData(parser_.get(), this);
    XML_SetElementHandler(parser_.get(), onStart, onEnd);
    XML_SetCharacterDataHandler(parser_.get(), onText);
    XML_SetEntityDeclHandler(parser_.get(), onEntityDeclaration);
    XML_SetAttlistDeclHandler(parser_.get(), onAttributeDeclaration);
    XML_SetSkippedEntityHandler(parser_.get(), onSkippedEntity);
    if (!parse() || failed_ || values_.size() != 1) return std::nullopt;
    return std::move(values_.front());
  }

 private:
  struct Container {
    Element element;
    std::size_t firstValue;
    std::size_t firstKey;
  };

  struct FreeParser {
    void operator()(XML_Parser parser) const { XML_ParserFree(parser); }
  };

  /// The parser copies what it is given: pieces keep the copy of a large document small, while
  /// usual documents are one piece, which is quickest. A token that spans pieces is scanned anew
  /// with each, so the pieces double until it is complete.
  bool parse() {
    constexpr std::size_t kPieceBytes = 4 << 20;
    std::size_t piece = kPieceBytes;
    for (std::size_t fed = 0; fed < bytes_.size();) {
      const std::size_t size = std::min(piece, bytes_.size() - fed);
      const bool isLast = fed + size == bytes_.size();
      if (XML_Parse(parser_.get(), bytes_.data() + fed, static_cast<int>(size), isLast) !=
          XML_STATUS_OK) {
        return false;
      }
      fed += size;
      const auto parsed = XML_GetCurrentByteIndex(parser_.get());
      const std::size_t pending = parsed < 0 ? 0 : fed - static_cast<std::size_t>(parsed);
      piece = std::max(kPieceBytes, pending);
    }
    return !bytes_.empty();
  }

  void fail() {
    if (failed_) return;
    failed_ = true;
    XML_StopParser(parser_.get(), XML_FALSE);
  }

  static void XMLCALL onStart(void* self, const XML_Char* name, const XML_Char**) {
    auto& reader = *static_cast<XmlReader*>(self);
    if (!reader.failed_ && !reader.start(elementNamed(name))) reader.fail();
  }

  static void XMLCALL onEnd(void* self, const XML_Char*) {
    auto& reader = *static_cast<XmlReader*>(self);
    if (!reader.failed_ && !reader.end()) reader.fail();
  }

  static void XMLCALL onText(void* self, const XML_Char* text, int length) {
    auto& reader = *static_cast<XmlReader*>(self);
    if (!reader.failed_ && !reader.text({text, static_cast<std::size_t>(length)})) reader.fail();
  }

  static void XMLCALL onEntityDeclaration(void* self, const XML_Char*, int, const XML_Char*, int,
                                          const XML_Char*, const XML_Char*, const XML_Char*,
                                          const XML_Char*) {
    static_cast<XmlReader*>(self)->fail();
  }

  static void XMLCALL onAttributeDeclaration(void* self, const XML_Char*, const XML_Char*,
                                             const XML_Char*, const XML_Char*, int) {
    auto& reader = *static_cast<XmlReader*>(self);
    if (++reader.attributeDeclarations_ > kMaximumAttributeDeclarations) reader.fail();
  }

  static void XMLCALL onSkippedEntity(void* self, const XML_Char*, int) {
    static_cast<XmlReader*>(self)->fail();
  }

  bool start(Element element) {
    if (leaf_ != Element::kNone || element == Element::kNone) return false;
    if (element == Element::kPlist) {
      if (!containers_.empty() || !values_.empty()) return false;
      containers_.push_back({element, 0, 0});
      depthOffset_ = 1;
      return true;
    }
    if (!mayFollow(element) || containers_.size() - depthOffset_ >= maximumDepth_ ||
        !pay(element)) {
      return false;
    }
    if (element == Element::kArray || element == Element::kDictionary) {
      containers_.push_back({element, values_.size(), keys_.size()});
    } else {
      leaf_ = element;
    }
    return true;
  }

  /// Keys and values take turns in a dictionary; outside of all containers there is one value.
  bool mayFollow(Element element) const {
    if (containers_.empty() || containers_.back().element == Element::kPlist) {
      return values_.empty() && element != Element::kKey;
    }
    if (containers_.back().element == Element::kArray) return element != Element::kKey;
    return isKeyDue(containers_.back()) == (element == Element::kKey);
  }

  bool isKeyDue(const Container& dictionary) const {
    return keys_.size() - dictionary.firstKey == values_.size() - dictionary.firstValue;
  }

  bool pay(Element element) {
    if (element == Element::kKey) {
      return budget_.takeBytes(PropertyListBudget::kKeyBytes) &&
             paySlot(keys_.size(), paidKeySlots_, sizeof(std::string));
    }
    return budget_.takeNodes(1) && budget_.takeBytes(PropertyListBudget::kValueBytes) &&
           paySlot(values_.size(), paidValueSlots_, sizeof(PropertyList));
  }

  /// A place on a stack is paid for when the stack first grows so far; it never shrinks.
  bool paySlot(std::size_t used, std::size_t& paid, std::size_t bytes) {
    if (used < paid) return true;
    ++paid;
    return budget_.takeBytes(bytes);
  }

  bool text(std::string_view piece) {
    if (leaf_ == Element::kNone) return isBlank(piece);
    const std::size_t size = text_.size() + piece.size();
    if (size > text_.capacity()) {
      // While the text moves to a larger block there are both.
      const std::size_t capacity = std::bit_ceil(size);
      if (!budget_.takeBytes(capacity)) return false;
      text_.reserve(capacity);
      budget_.giveBytesBack(std::exchange(textCost_, capacity));
    }
    text_.append(piece);
    return true;
  }

  bool end() {
    if (leaf_ != Element::kNone) return endLeaf();
    const Container container = containers_.back();
    containers_.pop_back();
    if (container.element == Element::kArray) {
      const auto first = values_.begin() + static_cast<std::ptrdiff_t>(container.firstValue);
      PropertyList::Array elements(std::make_move_iterator(first),
                                   std::make_move_iterator(values_.end()));
      values_.erase(first, values_.end());
      values_.emplace_back(std::move(elements));
    } else if (container.element == Element::kDictionary) {
      if (!isKeyDue(container)) return false;
      endDictionary(container);
    }
    return true;
  }

  void endDictionary(const Container& container) {
    const std::size_t count = values_.size() - container.firstValue;
    std::vector<PropertyList::Entry> entries;
    entries.reserve(count);
    for (std::size_t index = 0; index < count; ++index) {
      entries.push_back({std::move(keys_[container.firstKey + index]),
                         std::move(values_[container.firstValue + index])});
    }
    keys_.resize(container.firstKey);
    values_.resize(container.firstValue);
    values_.emplace_back(PropertyList::Dictionary::fromEntries(std::move(entries)));
  }

  bool endLeaf() {
    const Element leaf = std::exchange(leaf_, Element::kNone);
    if (leaf == Element::kKey || leaf == Element::kString) return endString(leaf);
    std::optional<PropertyList> value;
    if (leaf == Element::kData) {
      if (!budget_.takeBytes(text_.size() / 4 * 3 + PropertyListBudget::kHeapOverheadBytes)) {
        return false;
      }
      if (auto data = parseData(text_)) value = std::move(*data);
    } else {
      value = parseScalar(leaf, text_);
    }
    emptyText();
    if (!value) return false;
    values_.push_back(std::move(*value));
    return true;
  }

  static std::optional<PropertyList> parseScalar(Element leaf, std::string_view text) {
    switch (leaf) {
      case Element::kInteger:
        return parseInteger(text);
      case Element::kReal:
        return parseReal(text);
      case Element::kDate:
        return parseDate(text);
      default:
        if (!isBlank(text)) return std::nullopt;
        return PropertyList(leaf == Element::kTrue);
    }
  }

  bool endString(Element leaf) {
    // A long text hands its block over; a short one is copied into a block of its exact size.
    const std::size_t size = text_.size();
    std::string string = size < kLongTextBytes ? std::string(text_) : std::move(text_);
    emptyText();
    if (!budget_.takeBytes(PropertyListBudget::payloadBytes(size))) return false;
    if (leaf == Element::kKey) {
      keys_.push_back(std::move(string));
    } else {
      values_.emplace_back(std::move(string));
    }
    return true;
  }

  /// Keeps a block of moderate size for the next text.
  void emptyText() {
    text_.clear();
    if (textCost_ < kLongTextBytes) return;
    text_ = std::string();
    budget_.giveBytesBack(std::exchange(textCost_, 0));
  }

  /// The parser goes through an element's declared attributes each time that the element occurs.
  static constexpr std::size_t kMaximumAttributeDeclarations = 64;

  static constexpr std::size_t kLongTextBytes = 256 * 1024;

  const std::string_view bytes_;
  const std::size_t maximumDepth_;
  PropertyListBudget budget_;
  ParserMemory memory_;
  std::unique_ptr<XML_ParserStruct, FreeParser> parser_;

  std::vector<Container> containers_;
  /// 1 within <plist>, which is no value.
  std::size_t depthOffset_ = 0;
  Element leaf_ = Element::kNone;
  std::string text_;
  /// What the budget was charged for the text's block.
  std::size_t textCost_ = 0;
  std::vector<PropertyList> values_;
  std::vector<std::string> keys_;
  std::size_t paidValueSlots_ = 0;
  std::size_t paidKeySlots_ = 0;
  std::size_t attributeDeclarations_ = 0;
  bool failed_ = false;
};

}  // namespace

std::optional<PropertyList> readXmlPropertyList(std::string_view bytes,
                                                const PropertyListLimits& limits) {
  constexpr std::string_view kByteOrderMark = "\xEF\xBB\xBF";
  // The declaration must stand first, but some writers put blanks before it.
  if (bytes.starts_with(kByteOrderMark)) bytes.remove_prefix(kByteOrderMark.size());
  while (!bytes.empty() && isBlank(bytes.front())) bytes.remove_prefix(1);
  return XmlReader(bytes, limits).read();
}

}  // namespace kv
