#include "platform/qt/desktop/TrayWatch.h"

#include <QDBusConnection>
#include <QDBusConnectionInterface>
#include <QDBusMessage>
#include <QDBusPendingCallWatcher>
#include <QDBusPendingReply>
#include <utility>

#include "platform/qt/SessionBus.h"

namespace kv {
namespace {

const QString& watcherName() {
  static const QString name("org.kde.StatusNotifierWatcher");
  return name;
}

}  // namespace

TrayWatch::TrayWatch(std::function<void(Road)> found)
    : found_(std::move(found)), legacyTray_([this] {
        if (!patience_.isActive()) lookForLegacyTray();
      }) {
  patience_.setSingleShot(true);
  connect(&patience_, &QTimer::timeout, this, &TrayWatch::lookForLegacyTray);
  patience_.start(kPatienceMilliseconds);
  watchBus();
}

void TrayWatch::watchBus() {
  if (!hasSessionBus()) return;
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
  if (legacyTray_.isThere()) settle(Road::kWindow);
}

void TrayWatch::settle(Road road) {
  if (std::exchange(isSettled_, true)) return;
  patience_.stop();
  found_(road);
}

}  // namespace kv
