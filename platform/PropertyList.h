#pragma once

#include <compare>
#include <cstdint>
#include <initializer_list>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <variant>
#include <vector>

#include "platform/Date.h"

namespace kv {

/// A value of a property list: the tree that a document is read into and written from.
///
/// Threads    a plain value; no sharing, no locks.
/// Ownership  a container owns its members; copying copies the whole tree, moving is cheap.
/// Units      strings are UTF-8; dates are instants (see Date); data is raw bytes.
/// Errors     none. Asking for another type than the value has yields a null pointer.
class PropertyList {
 public:
  using String = std::string;
  using Data = std::vector<std::uint8_t>;
  using Array = std::vector<PropertyList>;
  struct Entry;

  /// A reference number of the compact encoding's archives: not an integer to any reader.
  struct Uid {
    std::uint64_t value = 0;
    friend auto operator<=>(const Uid&, const Uid&) = default;
  };

  /// Keys and values in the order in which they are stored; each key stands once.
  class Dictionary {
   public:
    Dictionary();
    Dictionary(std::initializer_list<Entry> entries);
    Dictionary(const Dictionary&);
    Dictionary(Dictionary&&) noexcept;
    Dictionary& operator=(const Dictionary&);
    Dictionary& operator=(Dictionary&&) noexcept;
    ~Dictionary();

    /// The value of `key`, or null. Linear: records have some twenty keys.
    const PropertyList* find(std::string_view key) const;
    PropertyList* find(std::string_view key);

    /// Replaces the value of `key` where it stands, or appends the pair.
    void set(std::string_view key, PropertyList value);

    /// True when there was such a key.
    bool erase(std::string_view key);

    std::size_t size() const;
    bool empty() const;
    const Entry* begin() const;
    const Entry* end() const;

    /// Takes over `entries`, which hold each key at most once.
    static Dictionary fromUniqueEntries(std::vector<Entry> entries);

    /// Takes over `entries`; of those with the same key the last one's value stands in the first
    /// one's place. Takes n log n steps, whatever the keys.
    static Dictionary fromEntries(std::vector<Entry> entries);

    friend bool operator==(const Dictionary&, const Dictionary&);

   private:
    std::vector<Entry> entries_;
  };

  // Each constructor takes exactly one type, so that no conversion picks another by surprise.
  PropertyList() : value_(String()) {}
  PropertyList(String value) : value_(std::move(value)) {}
  PropertyList(std::string_view value) : value_(String(value)) {}
  PropertyList(const char* value) : value_(String(value)) {}
  PropertyList(bool value) : value_(value) {}
  PropertyList(int value) : value_(std::int64_t{value}) {}
  PropertyList(std::int64_t value) : value_(value) {}
  /// Keeps values above the signed range apart from those within it.
  PropertyList(std::uint64_t value);
  PropertyList(double value) : value_(value) {}
  PropertyList(Date value) : value_(value) {}
  PropertyList(Uid value) : value_(value) {}
  PropertyList(Data value) : value_(std::move(value)) {}
  PropertyList(Array value) : value_(std::move(value)) {}
  PropertyList(Dictionary value) : value_(std::move(value)) {}

  /// The value when it is exactly a T (one of String, std::int64_t, std::uint64_t, double, bool,
  /// Date, Uid, Data, Array, Dictionary), else null. A std::uint64_t is held only for integers
  /// above the signed 64-bit range.
  template <class T>
  const T* as() const {
    return std::get_if<T>(&value_);
  }
  template <class T>
  T* as() {
    return std::get_if<T>(&value_);
  }

  /// For std::visit-like dispatch over the ten alternatives.
  template <class Visitor>
  decltype(auto) visit(Visitor&& visitor) const {
    return std::visit(std::forward<Visitor>(visitor), value_);
  }

  /// The value as a line of text shows it: strings as they stand, numbers in decimal, booleans as
  /// 1 or 0, dates as "2024-03-05 09:30:00 +0000", containers in parentheses and braces.
  std::string description() const;

  /// Dates and reals compare by value, so a NaN is unequal to itself.
  friend bool operator==(const PropertyList&, const PropertyList&) = default;

 private:
  std::variant<String, std::int64_t, std::uint64_t, double, bool, Date, Uid, Data, Array,
               Dictionary>
      value_;
};

struct PropertyList::Entry {
  std::string key;
  PropertyList value;
  friend bool operator==(const Entry&, const Entry&) = default;
};

}  // namespace kv
