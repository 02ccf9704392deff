#include "app/ScriptValues.h"

#include <QByteArray>
#include <QString>
#include <QStringList>
#include <QVariant>
#include <cmath>
#include <cstring>
#include <string_view>
#include <unordered_map>
#include <utility>
#include <vector>

#include "app/ScriptError.h"
#include "app/ScriptFile.h"

namespace kv {
namespace {

/// The kinds of values on the border; script/values.js has the same list and explains the format.
enum class Kind : std::uint32_t {
  kAbsent,
  kNumber,
  kString,
  kTrue,
  kFalse,
  kDate,
  kData,
  kDictionary,
  kArray
};

/// Deeper levels are absent; no document that was read has more.
constexpr std::size_t kDeepest = 512;

constexpr double kMillisecondsPerSecond = 1000.0;

QString toText(std::string_view utf8) {
  return QString::fromUtf8(utf8.data(), static_cast<qsizetype>(utf8.size()));
}

/// Never null, even when empty: the engine makes no ArrayBuffer of a null one.
template <class T>
QByteArray bytesOf(const std::vector<T>& elements) {
  QByteArray bytes(static_cast<qsizetype>(elements.size() * sizeof(T)), '\0');
  if (!elements.empty()) std::memcpy(bytes.data(), elements.data(), elements.size() * sizeof(T));
  return bytes;
}

/// Writes a tree as the flat arrays that `build` walks.
class Flattener {
 public:
  explicit Flattener(QJSEngine& engine) : engine_(engine) {}

  void add(const PropertyList& value) {
    value.visit([this](const auto& held) { addHeld(held); });
  }

  void addList(const TaskList& list) { addHeld(list); }

  QJSValueList arguments() {
    QJSValue blobs = engine_.newArray(static_cast<uint>(blobs_.size()));
    for (std::size_t index = 0; index < blobs_.size(); ++index) {
      blobs.setProperty(static_cast<quint32>(index), blobs_[index]);
    }
    return {engine_.toScriptValue(bytesOf(operations_)), engine_.toScriptValue(bytesOf(numbers_)),
            engine_.toScriptValue(keys_), engine_.toScriptValue(texts_), blobs};
  }

 private:
  void addKind(Kind kind) { operations_.push_back(static_cast<std::uint32_t>(kind)); }
  void addCount(std::size_t count) { operations_.push_back(static_cast<std::uint32_t>(count)); }
  void addNumber(Kind kind, double number) {
    addKind(kind);
    numbers_.push_back(number);
  }

  void addHeld(const PropertyList::String& text) {
    addKind(Kind::kString);
    texts_.append(toText(text));
  }
  void addHeld(std::int64_t number) { addNumber(Kind::kNumber, static_cast<double>(number)); }
  void addHeld(std::uint64_t number) { addNumber(Kind::kNumber, static_cast<double>(number)); }
  void addHeld(double number) { addNumber(Kind::kNumber, number); }
  void addHeld(bool truth) { addKind(truth ? Kind::kTrue : Kind::kFalse); }
  void addHeld(const Date& date) {
    addNumber(Kind::kDate, date.unixSeconds() * kMillisecondsPerSecond);
  }
  void addHeld(const PropertyList::Uid& uid) {
    addKind(Kind::kDictionary);
    addCount(1);
    addKey("CF$UID");
    addHeld(uid.value);
  }
  void addHeld(const PropertyList::Data& data) {
    addKind(Kind::kData);
    blobs_.push_back(engine_.toScriptValue(bytesOf(data)));
  }
  void addHeld(const PropertyList::Array& array) {
    if (!enter(Kind::kArray, array.size())) return;
    for (const PropertyList& element : array) add(element);
    --depth_;
  }
  void addHeld(const PropertyList::Dictionary& dictionary) {
    if (!enter(Kind::kDictionary, dictionary.size())) return;
    for (const auto& [key, value] : dictionary) {
      addKey(key);
      add(value);
    }
    --depth_;
  }

  bool enter(Kind kind, std::size_t count) {
    if (depth_ == kDeepest) {
      addKind(Kind::kAbsent);
      return false;
    }
    ++depth_;
    addKind(kind);
    addCount(count);
    return true;
  }

  /// Records share their keys, so each crosses the border once.
  void addKey(std::string_view key) {
    const auto [known, isNew] = keyIndexes_.try_emplace(key, keyIndexes_.size());
    if (isNew) keys_.append(toText(key));
    addCount(known->second);
  }

  QJSEngine& engine_;
  std::vector<std::uint32_t> operations_;
  std::vector<double> numbers_;
  QStringList keys_;
  std::unordered_map<std::string_view, std::size_t> keyIndexes_;
  QStringList texts_;
  std::vector<QJSValue> blobs_;
  std::size_t depth_ = 0;
};

template <class T>
std::vector<T> elementsOf(const QJSValue& buffer) {
  const QByteArray bytes = buffer.toVariant().toByteArray();
  std::vector<T> elements(static_cast<std::size_t>(bytes.size()) / sizeof(T));
  if (!elements.empty()) std::memcpy(elements.data(), bytes.data(), elements.size() * sizeof(T));
  return elements;
}

/// Walks the flat arrays that `flatten` wrote. What a script's tampering may have left of them
/// reads as absent beyond its end.
class Builder {
 public:
  explicit Builder(const QJSValue& flat)
      : operations_(elementsOf<std::uint32_t>(flat.property("operations"))),
        numbers_(elementsOf<double>(flat.property("numbers"))),
        text_(flat.property("text").toString()),
        blobs_(flat.property("blobs")) {}

  std::optional<PropertyList> value() {
    switch (static_cast<Kind>(nextOperation())) {
      case Kind::kNumber:
        return number(nextNumber());
      case Kind::kString:
        return PropertyList(nextText());
      case Kind::kTrue:
        return PropertyList(true);
      case Kind::kFalse:
        return PropertyList(false);
      case Kind::kDate:
        return PropertyList(Date::fromUnixSeconds(nextNumber() / kMillisecondsPerSecond));
      case Kind::kData:
        return PropertyList(elementsOf<std::uint8_t>(blobs_.property(blob_++)));
      case Kind::kDictionary:
        return PropertyList(dictionary());
      case Kind::kArray:
        return PropertyList(array());
      case Kind::kAbsent:
        break;
    }
    return std::nullopt;
  }

 private:
  static PropertyList number(double value) {
    constexpr double kBeyondInt64 = 0x1p63;
    const bool isWhole = std::trunc(value) == value && std::abs(value) < kBeyondInt64;
    return isWhole ? PropertyList(static_cast<std::int64_t>(value)) : PropertyList(value);
  }

  PropertyList::Dictionary dictionary() {
    std::vector<PropertyList::Entry> entries;
    for (std::uint32_t count = nextOperation(); count > 0 && !isAtEnd(); --count) {
      std::string key = nextText();
      if (auto member = value()) entries.push_back({std::move(key), std::move(*member)});
    }
    return PropertyList::Dictionary::fromUniqueEntries(std::move(entries));
  }

  PropertyList::Array array() {
    PropertyList::Array elements;
    for (std::uint32_t count = nextOperation(); count > 0 && !isAtEnd(); --count) {
      elements.push_back(value().value_or(PropertyList()));
    }
    return elements;
  }

  bool isAtEnd() const { return operation_ >= operations_.size(); }
  std::uint32_t nextOperation() { return isAtEnd() ? 0 : operations_[operation_++]; }
  double nextNumber() { return number_ < numbers_.size() ? numbers_[number_++] : 0.0; }
  std::string nextText() {
    const auto length = static_cast<qsizetype>(nextOperation());
    const QString text = text_.mid(position_, length);
    position_ += length;
    return text.toStdString();
  }

  std::vector<std::uint32_t> operations_;
  std::vector<double> numbers_;
  QString text_;
  QJSValue blobs_;
  std::size_t operation_ = 0;
  std::size_t number_ = 0;
  qsizetype position_ = 0;
  quint32 blob_ = 0;
};

}  // namespace

ScriptValues::ScriptValues(QJSEngine& engine) : engine_(engine) {
  const QJSValue functions = evaluateScriptFile(engine, "values.js");
  build_ = functions.property("build");
  flatten_ = functions.property("flatten");
}

QJSValue ScriptValues::fromPropertyList(const PropertyList* value) {
  if (value == nullptr) return QJSValue::NullValue;
  // What the scheduler passes for every task, without a detour.
  if (const auto* text = value->as<PropertyList::String>()) return toText(*text);
  Flattener flattener(engine_);
  flattener.add(*value);
  QJSValue built = build_.call(flattener.arguments());
  if (built.isError()) throw ScriptError(built);
  return built;
}

QJSValue ScriptValues::fromList(const TaskList& list) {
  Flattener flattener(engine_);
  flattener.addList(list);
  QJSValue built = build_.call(flattener.arguments());
  if (built.isError()) throw ScriptError(built);
  return built;
}

std::optional<PropertyList> ScriptValues::toPropertyList(const QJSValue& value) {
  if (value.isUndefined() || value.isNull()) return std::nullopt;
  const QJSValue flat = flatten_.call({value});
  if (flat.isError()) throw ScriptError(flat);
  return Builder(flat).value();
}

}  // namespace kv
