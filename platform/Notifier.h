#pragma once

#include <string>

namespace kv {

/// What a user is told in passing. All texts are UTF-8 and plain: nothing in them is markup.
struct Notification {
  enum class Urgency { kLow, kNormal, kCritical };
  std::string summary;
  /// May have several lines.
  std::string body;
  Urgency urgency = Urgency::kNormal;
  /// The name of an icon of the desktop's theme.
  std::string icon;
};

/// Shows notifications on the desktop.
///
/// Threads    main thread only.
/// Errors     none: where nobody shows notifications they are lost without a word.
class Notifier {
 public:
  virtual ~Notifier() = default;
  /// Never waits.
  virtual void notify(const Notification& notification) = 0;
};

}  // namespace kv
