#include "platform/PropertyList.h"

#include <fmt/format.h>

#include <algorithm>
#include <bitset>
#include <cmath>
#include <cstdlib>
#include <functional>
#include <iterator>
#include <limits>

#include "platform/CivilTime.h"

namespace kv {
namespace {

/// Up to this size comparing keys with each other is quicker than hashing and sorting them.
constexpr std::size_t kSmallDictionary = 48;
constexpr std::size_t kSketches = 256;

struct HashedKey {
  std::size_t hash;
  std::size_t index;
};

/// The indexes of the entries, equal keys side by side and in stored order among themselves.
std::vector<HashedKey> groupedByKey(const std::vector<PropertyList::Entry>& entries) {
  std::vector<HashedKey> keys;
  keys.reserve(entries.size());
  for (std::size_t index = 0; index < entries.size(); ++index) {
    keys.push_back({std::hash<std::string>()(entries[index].key), index});
  }
  // Keys made to collide fall back to comparing the texts, so no document makes this quadratic.
  std::sort(keys.begin(), keys.end(), [&](const HashedKey& a, const HashedKey& b) {
    if (a.hash != b.hash) return a.hash < b.hash;
    const int order = entries[a.index].key.compare(entries[b.index].key);
    return order != 0 ? order < 0 : a.index < b.index;
  });
  return keys;
}

/// Most keys differ from all earlier ones in this already, which saves comparing them.
std::size_t sketch(std::string_view key) {
  if (key.empty()) return 0;
  const auto first = static_cast<unsigned char>(key.front());
  const auto last = static_cast<unsigned char>(key.back());
  return (key.size() * 41u + first * 7u + last) % kSketches;
}

bool hasDuplicate(const std::vector<PropertyList::Entry>& entries) {
  std::bitset<kSketches> seen;
  for (auto later = entries.begin(); later != entries.end(); ++later) {
    const std::size_t slot = sketch(later->key);
    const auto isSame = [&](const PropertyList::Entry& earlier) {
      return earlier.key == later->key;
    };
    if (seen[slot] && std::any_of(entries.begin(), later, isSame)) return true;
    seen[slot] = true;
  }
  return false;
}

/// Moves each key's last value to its first place and drops the rest.
void removeDuplicates(std::vector<PropertyList::Entry>& entries) {
  const std::vector<HashedKey> keys = groupedByKey(entries);
  std::vector<bool> dropped(entries.size());
  for (std::size_t first = 0; first < keys.size();) {
    std::size_t last = first;
    while (last + 1 < keys.size() && keys[last + 1].hash == keys[first].hash &&
           entries[keys[last + 1].index].key == entries[keys[first].index].key) {
      dropped[keys[++last].index] = true;
    }
    if (last != first) {
      entries[keys[first].index].value = std::move(entries[keys[last].index].value);
    }
    first = last + 1;
  }
  std::size_t kept = 0;
  for (std::size_t index = 0; index < entries.size(); ++index) {
    if (dropped[index]) continue;
    if (kept != index) entries[kept] = std::move(entries[index]);
    ++kept;
  }
  entries.resize(kept);
}

/// Appends what a reader of a trace line wants to see of each type.
class Describer {
 public:
  explicit Describer(std::string& text) : text_(text) {}

  void operator()(const PropertyList::String& value) { text_ += value; }
  void operator()(bool value) { text_ += value ? '1' : '0'; }
  void operator()(std::int64_t value) { append("{}", value); }
  void operator()(std::uint64_t value) { append("{}", value); }
  void operator()(double value) { append("{}", value); }
  void operator()(PropertyList::Uid value) { append("{}", value.value); }

  void operator()(Date value) {
    const double seconds = std::floor(value.unixSeconds());
    const bool isInCalendar = seconds >= static_cast<double>(CivilTime::earliestUnixSeconds()) &&
                              seconds <= static_cast<double>(CivilTime::latestUnixSeconds());
    if (!isInCalendar) {
      append("{}", seconds);
      return;
    }
    const CivilTime time = CivilTime::fromUnixSeconds(static_cast<std::int64_t>(seconds));
    append("{}{:04}-{:02}-{:02} {:02}:{:02}:{:02} +0000", time.year < 0 ? "-" : "",
           std::abs(time.year), time.month, time.day, time.hour, time.minute, time.second);
  }

  void operator()(const PropertyList::Data& value) {
    text_ += '<';
    for (const std::uint8_t byte : value) append("{:02x}", byte);
    text_ += '>';
  }

  void operator()(const PropertyList::Array& value) {
    text_ += '(';
    const char* separator = "";
    for (const PropertyList& element : value) {
      text_ += separator;
      element.visit(*this);
      separator = ", ";
    }
    text_ += ')';
  }

  void operator()(const PropertyList::Dictionary& value) {
    text_ += '{';
    const char* separator = "";
    for (const PropertyList::Entry& entry : value) {
      text_.append(separator).append(entry.key).append(" = ");
      entry.value.visit(*this);
      separator = "; ";
    }
    text_ += '}';
  }

 private:
  template <class... Arguments>
  void append(fmt::format_string<const Arguments&...> format, const Arguments&... arguments) {
    fmt::format_to(std::back_inserter(text_), format, arguments...);
  }

  std::string& text_;
};

}  // namespace

PropertyList::PropertyList(std::uint64_t value) {
  if (value <= static_cast<std::uint64_t>(std::numeric_limits<std::int64_t>::max())) {
    value_ = static_cast<std::int64_t>(value);
  } else {
    value_ = value;
  }
}

std::string PropertyList::description() const {
  std::string text;
  visit(Describer(text));
  return text;
}

PropertyList::Dictionary::Dictionary() = default;
PropertyList::Dictionary::Dictionary(std::initializer_list<Entry> entries)
    : Dictionary(fromEntries(entries)) {}
PropertyList::Dictionary::Dictionary(const Dictionary&) = default;
PropertyList::Dictionary::Dictionary(Dictionary&&) noexcept = default;
PropertyList::Dictionary& PropertyList::Dictionary::operator=(const Dictionary&) = default;
PropertyList::Dictionary& PropertyList::Dictionary::operator=(Dictionary&&) noexcept = default;
PropertyList::Dictionary::~Dictionary() = default;

const PropertyList* PropertyList::Dictionary::find(std::string_view key) const {
  for (const Entry& entry : entries_) {
    if (entry.key == key) return &entry.value;
  }
  return nullptr;
}

PropertyList* PropertyList::Dictionary::find(std::string_view key) {
  return const_cast<PropertyList*>(std::as_const(*this).find(key));
}

void PropertyList::Dictionary::set(std::string_view key, PropertyList value) {
  if (PropertyList* present = find(key)) {
    *present = std::move(value);
  } else {
    entries_.push_back({std::string(key), std::move(value)});
  }
}

bool PropertyList::Dictionary::erase(std::string_view key) {
  return std::erase_if(entries_, [&](const Entry& entry) { return entry.key == key; }) > 0;
}

std::size_t PropertyList::Dictionary::size() const {
  return entries_.size();
}
bool PropertyList::Dictionary::empty() const {
  return entries_.empty();
}
const PropertyList::Entry* PropertyList::Dictionary::begin() const {
  return entries_.data();
}
const PropertyList::Entry* PropertyList::Dictionary::end() const {
  return entries_.data() + entries_.size();
}

PropertyList::Dictionary PropertyList::Dictionary::fromUniqueEntries(std::vector<Entry> entries) {
  Dictionary dictionary;
  dictionary.entries_ = std::move(entries);
  return dictionary;
}

PropertyList::Dictionary PropertyList::Dictionary::fromEntries(std::vector<Entry> entries) {
  if (entries.size() > kSmallDictionary || hasDuplicate(entries)) removeDuplicates(entries);
  return fromUniqueEntries(std::move(entries));
}

bool operator==(const PropertyList::Dictionary& a, const PropertyList::Dictionary& b) {
  return a.entries_ == b.entries_;
}

}  // namespace kv
