#include "app/ScriptValues.h"

#include <QByteArray>
#include <QString>
#include <QStringList>
#include <QVariant>
#include <cmath>
#include <cstring>
#include <string_view>
#include <utility>
#include <vector>

#include "app/ScriptError.h"
#include "app/ScriptFile.h"

namespace kv {
namespace {

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
  Flattener(QJSEngine& engine, ScriptShapes& shapes) : engine_(engine), shapes_(shapes) {
    shapes_.beginTree();
  }

  void add(const PropertyList& value) {
    value.visit([this](const auto& held) { addHeld(held); });
  }

  void addList(const TaskList& list) { addHeld(list); }

  QJSValueList arguments() {
    QJSValue blobs = engine_.newArray(static_cast<uint>(blobs_.size()));
    for (std::size_t index = 0; index < blobs_.size(); ++index) {
      blobs.setProperty(static_cast<quint32>(index), blobs_[index]);
    }
    return {engine_.toScriptValue(bytesOf(operations_)),
            engine_.toScriptValue(bytesOf(numbers_)),
            engine_.toScriptValue(texts_),
            blobs,
            shapes_.firstNew(),
            engine_.toScriptValue(bytesOf(shapes_.newKinds())),
            engine_.toScriptValue(shapes_.newKeys())};
  }

 private:
  using Uid = PropertyList::Uid;

  void addCount(std::size_t count) { operations_.push_back(static_cast<std::uint32_t>(count)); }

  template <class Held>
  void addHeld(const Held& held) {
    operations_.push_back(static_cast<std::uint32_t>(kindOf(held)));
    addContents(held);
  }

  void addContents(const PropertyList& value) {
    value.visit([this](const auto& held) { addContents(held); });
  }

  ValueKind kindOf(const PropertyList& value) const {
    return value.visit([this](const auto& held) { return kindOf(held); });
  }

  ValueKind kindOf(const PropertyList::String&) const { return ValueKind::kString; }
  void addContents(const PropertyList::String& text) { texts_.append(toText(text)); }

  ValueKind kindOf(std::int64_t) const { return ValueKind::kNumber; }
  void addContents(std::int64_t number) { numbers_.push_back(static_cast<double>(number)); }

  ValueKind kindOf(std::uint64_t) const { return ValueKind::kNumber; }
  void addContents(std::uint64_t number) { numbers_.push_back(static_cast<double>(number)); }

  ValueKind kindOf(double) const { return ValueKind::kNumber; }
  void addContents(double number) { numbers_.push_back(number); }

  ValueKind kindOf(bool truth) const { return truth ? ValueKind::kTrue : ValueKind::kFalse; }
  void addContents(bool) {}

  ValueKind kindOf(const Date&) const { return ValueKind::kDate; }
  void addContents(const Date& date) {
    numbers_.push_back(date.unixSeconds() * kMillisecondsPerSecond);
  }

  ValueKind kindOf(const PropertyList::Data&) const { return ValueKind::kData; }
  void addContents(const PropertyList::Data& data) {
    blobs_.push_back(engine_.toScriptValue(bytesOf(data)));
  }

  ValueKind kindOf(const Uid&) const { return containerKind(ValueKind::kDictionary); }
  void addContents(const Uid& uid) {
    if (depth_ == kDeepest) return;
    shapes_.addMember("CF$UID", ValueKind::kNumber);
    addCount(shapes_.endShape());
    addContents(uid.value);
  }

  ValueKind kindOf(const PropertyList::Array&) const { return containerKind(ValueKind::kArray); }
  void addContents(const PropertyList::Array& array) {
    if (depth_ == kDeepest) return;
    ++depth_;
    addCount(array.size());
    for (const PropertyList& element : array) add(element);
    --depth_;
  }

  ValueKind kindOf(const PropertyList::Dictionary&) const {
    return containerKind(ValueKind::kDictionary);
  }
  void addContents(const PropertyList::Dictionary& dictionary) {
    if (depth_ == kDeepest) return;
    ++depth_;
    for (const auto& [key, value] : dictionary) shapes_.addMember(key, kindOf(value));
    addCount(shapes_.endShape());
    for (const auto& [key, value] : dictionary) addContents(value);
    --depth_;
  }

  ValueKind containerKind(ValueKind kind) const {
    return depth_ == kDeepest ? ValueKind::kAbsent : kind;
  }

  QJSEngine& engine_;
  ScriptShapes& shapes_;
  std::vector<std::uint32_t> operations_;
  std::vector<double> numbers_;
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
    switch (static_cast<ValueKind>(nextOperation())) {
      case ValueKind::kNumber:
        return number(nextNumber());
      case ValueKind::kString:
        return PropertyList(nextText());
      case ValueKind::kTrue:
        return PropertyList(true);
      case ValueKind::kFalse:
        return PropertyList(false);
      case ValueKind::kDate:
        return PropertyList(Date::fromUnixSeconds(nextNumber() / kMillisecondsPerSecond));
      case ValueKind::kData:
        return PropertyList(elementsOf<std::uint8_t>(blobs_.property(blob_++)));
      case ValueKind::kDictionary:
        return PropertyList(dictionary());
      case ValueKind::kArray:
        return PropertyList(array());
      case ValueKind::kAbsent:
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
  const QJSValue functions = importScriptFile(engine, "values.mjs");
  build_ = functions.property("build");
  flatten_ = functions.property("flatten");
}

QJSValue ScriptValues::fromPropertyList(const PropertyList* value) {
  if (value == nullptr) return QJSValue::NullValue;
  // What the scheduler passes for every task, without a detour.
  if (const auto* text = value->as<PropertyList::String>()) return toText(*text);
  Flattener flattener(engine_, shapes_);
  flattener.add(*value);
  return build(flattener.arguments());
}

QJSValue ScriptValues::fromList(const TaskList& list) {
  Flattener flattener(engine_, shapes_);
  flattener.addList(list);
  return build(flattener.arguments());
}

QJSValue ScriptValues::build(const QJSValueList& flat) {
  QJSValue built = build_.call(flat);
  if (built.isError()) {
    shapes_.forget();  // the script may not have learned the new ones
    throw ScriptError(built);
  }
  return built;
}

std::optional<PropertyList> ScriptValues::toPropertyList(const QJSValue& value) {
  if (value.isUndefined() || value.isNull()) return std::nullopt;
  const QJSValue flat = flatten_.call({value});
  if (flat.isError()) throw ScriptError(flat);
  return Builder(flat).value();
}

}  // namespace kv
