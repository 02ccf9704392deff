#include "platform/qt/desktop/TrayWatch.h"

#include <QDBusConnection>
#include <QDBusConnectionInterface>
#include <QDBusMessage>
#include <QDBusPendingCallWatcher>
#include <QDBusPendingReply>
#include <QPointer>
#include <utility>

namespace kv {
namespace {

const QString& watcherName() {
  static const QString name("org.kde.StatusNotifierWatcher");
  return name;
}

/// Has Qt connect to a session bus that there is not, which it does once in the life of a process:
/// a window's icon does not need it, and one that does not answer would hold up the program.
void keepQtFromBus() {
  constexpr const char* kVariable = "DBUS_SESSION_BUS_ADDRESS";
  const QByteArray usual = qgetenv(kVariable);
  qputenv(kVariable, "unix:path=/dev/null");
  QDBusConnection::sessionBus();
  // The programs that the agent starts are to find the environment as it was.
  if (usual.isNull()) {
    qunsetenv(kVariable);
  } else {
    qputenv(kVariable, usual);
  }
}

}  // namespace

TrayWatch::TrayWatch(std::function<void(Road)> found, const DesktopModule::GreetBus& greetBus)
    : found_(std::move(found)), legacyTray_([this] {
        if (!patience_.isActive()) lookForLegacyTray();
      }) {
  patience_.setSingleShot(true);
  connect(&patience_, &QTimer::timeout, this, &TrayWatch::lookForLegacyTray);
  patience_.start(kPatienceMilliseconds);
  greetBus([self = QPointer<TrayWatch>(this)] {
    if (self != nullptr) self->watchBus();
  });
}

void TrayWatch::watchBus() {
  doesBusAnswer_ = true;
  if (isSettled_) return;
  const QDBusConnection bus = QDBusConnection::sessionBus();
  if (!bus.isConnected()) return;
  watcher_.setConnection(bus);
  watcher_.setWatchMode(QDBusServiceWatcher::WatchForRegistration);
  watcher_.addWatchedService(watcherName());
  connect(&watcher_, &QDBusServiceWatcher::serviceRegistered, this, [this] { settle(Road::kBus); });
  askForWatcher();
}

/// Asked without waiting: a bus that does not answer must not hold the program up.
void TrayWatch::askForWatcher() {
  auto question = QDBusMessage::createMethodCall("org.freedesktop.DBus", "/org/freedesktop/DBus",
                                                 "org.freedesktop.DBus", "NameHasOwner");
  question << watcherName();
  auto* const answer =
      new QDBusPendingCallWatcher(QDBusConnection::sessionBus().asyncCall(question), this);
  connect(answer, &QDBusPendingCallWatcher::finished, this, [this, answer] {
    const QDBusPendingReply<bool> isThere = *answer;
    answer->deleteLater();
    if (isThere.isValid() && isThere.value()) settle(Road::kBus);
  });
}

void TrayWatch::lookForLegacyTray() {
  if (isSettled_ || !legacyTray_.isThere()) return;
  if (!doesBusAnswer_) keepQtFromBus();
  settle(Road::kWindow);
}

void TrayWatch::settle(Road road) {
  if (std::exchange(isSettled_, true)) return;
  patience_.stop();
  found_(road);
}

}  // namespace kv
