#pragma once

#include <string>
#include <vector>

#include "platform/Notifier.h"

namespace kv::test {

/// Keeps what the user would be told, as "<urgency> <icon>: <summary>: <body>".
struct RecordingNotifier final : Notifier {
  void notify(const Notification& notification) override {
    shown.push_back(std::to_string(static_cast<int>(notification.urgency)) + " " +
                    notification.icon + ": " + notification.summary + ": " + notification.body);
  }
  std::vector<std::string> shown;
};

}  // namespace kv::test
