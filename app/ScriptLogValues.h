#pragma once

#include <QJSValue>
#include <QObject>
#include <QString>
#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <stdexcept>

#include "logging/DDLogMessage.h"
#include "logging/LogColor.h"
#include "logging/LogLevel.h"

namespace kv {

// The values of script/logging.mjs, which has checked them, as the logging framework's.

/// A mask of flags; -1 stands for all bits, which no JavaScript number can hold.
inline std::uint64_t maskFromScript(double mask) {
  return mask < 0 ? LogLevel::kAll : static_cast<std::uint64_t>(mask);
}
inline double maskToScript(std::uint64_t mask) {
  return mask == LogLevel::kAll ? -1 : static_cast<double>(mask);
}

/// 0xRRGGBB; -1 for none.
inline std::optional<LogColor> colorFromScript(int color) {
  if (color < 0) return std::nullopt;
  return LogColor::fromBytes(static_cast<std::uint8_t>(color >> 16),
                             static_cast<std::uint8_t>(color >> 8),
                             static_cast<std::uint8_t>(color));
}

/// The Type that a script has passed; std::invalid_argument when it is something else.
template <class Type>
Type& objectFromScript(QObject* object) {
  if (auto* found = qobject_cast<Type*>(object)) return *found;
  throw std::invalid_argument("this object does not belong here");
}

/// The tags that scripts name by texts: equal texts are one tag, as long as somebody holds it.
/// Threads: the engine's.
class ScriptTags {
 public:
  /// No tag for null.
  LogTag tagFor(const QJSValue& text) {
    if (text.isNull()) return nullptr;
    std::weak_ptr<const void>& known = tags_[text.toString()];
    LogTag tag = known.lock();
    if (tag == nullptr) {
      known = tag = std::make_shared<const char>();
      if (tags_.size() >= sweepAt_) sweep();
    }
    return tag;
  }

 private:
  /// A script that makes up ever new tags must not fill the memory.
  void sweep() {
    std::erase_if(tags_, [](const auto& entry) { return entry.second.expired(); });
    sweepAt_ = 2 * tags_.size() + kFirstSweep;
  }

  static constexpr std::size_t kFirstSweep = 64;
  std::map<QString, std::weak_ptr<const void>> tags_;
  std::size_t sweepAt_ = kFirstSweep;
};

}  // namespace kv
