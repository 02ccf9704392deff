#pragma once

#include <QDBusServiceWatcher>
#include <QObject>
#include <QTimer>
#include <functional>

#include "platform/qt/DesktopModule.h"
#include "platform/qt/desktop/LegacyTray.h"

namespace kv {

/// Finds out when an icon can be shown, and by which road.
///
/// Waiting ──a watcher of status notifiers is there──► by the bus
///         ──kPatience without one, and there is an old tray──► as a window
///
/// Qt asks for a watcher once in the life of a process, at its first tray icon, and keeps to the
/// answer: made a moment too early, the icon would never be seen. So none is made before this says
/// that there is somebody to show it, however long that takes.
///
/// Qt also waits for the bus as long as that takes to answer, so it is asked for it only when the
/// bus has answered somebody else.
///
/// Threads    main thread only.
/// Errors     none: without a session bus that answers it waits for an old tray alone.
class TrayWatch final : public QObject {
  Q_OBJECT
 public:
  enum class Road { kBus, kWindow };
  static constexpr int kPatienceMilliseconds = 10'000;

  /// Calls `found` once, not from within the constructor.
  TrayWatch(std::function<void(Road)> found, const DesktopModule::GreetBus& greetBus);

 private:
  void watchBus();
  void askForWatcher();
  void lookForLegacyTray();
  void settle(Road road);

  std::function<void(Road)> found_;
  QDBusServiceWatcher watcher_;
  QTimer patience_;
  LegacyTray legacyTray_;
  bool doesBusAnswer_ = false;
  bool isSettled_ = false;
};

}  // namespace kv
