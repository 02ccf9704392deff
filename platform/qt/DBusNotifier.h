#pragma once

#include <QDBusConnection>
#include <QString>
#include <optional>
#include <string>

#include "platform/Notifier.h"

namespace kv {

/// Shows notifications by the desktop's notification service, which is found on the session bus.
///
/// Unconnected ──notification, and there is a bus──► Connected ──bus ends──► Unconnected
///
/// Nothing here waits for the bus, not even the first connection: what is to be sent waits in the
/// connection until the bus has let it in, so a bus that hangs costs some memory per notification.
/// No bus is ever started.
///
/// Threads    main thread only.
/// Ownership  the connection ends with the object; what has not been sent by then is lost.
/// Errors     none; without a bus or a service nothing happens.
class DBusNotifier final : public Notifier {
 public:
  /// `application` is the name shown; `desktopEntry` that of its desktop file, without the suffix.
  DBusNotifier(std::string application, std::string desktopEntry);
  ~DBusNotifier() override;
  DBusNotifier(const DBusNotifier&) = delete;
  DBusNotifier& operator=(const DBusNotifier&) = delete;

  void notify(const Notification& notification) override;

  /// What is longer is cut, in characters.
  static constexpr std::size_t kLongestSummary = 200;
  static constexpr std::size_t kLongestBody = 1000;

 private:
  bool connect();
  void disconnect();

  const QString application_;
  const QString desktopEntry_;
  const QString connectionName_;
  std::optional<QDBusConnection> connection_;
};

}  // namespace kv
