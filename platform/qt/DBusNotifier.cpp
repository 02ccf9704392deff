#include "platform/qt/DBusNotifier.h"

#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <QByteArray>
#include <QDBusMessage>
#include <QStringList>
#include <QVariantMap>
#include <algorithm>
#include <cstddef>
#include <string_view>
#include <utility>

#include "platform/HarmlessText.h"
#include "platform/SessionBusAddress.h"
#include "platform/Utf8.h"

namespace kv {
namespace {

/// The first `longest` characters, without those that do something to the others. A line feed is
/// kept, or becomes a blank.
std::string cleaned(std::string_view text, std::size_t longest, char lineFeed) {
  std::string result;
  for (std::size_t count = 0; !text.empty() && count < longest;) {
    const char32_t character = takeUtf8(text);
    if (character == U'\n' || character == U'\t') {
      result += character == U'\n' ? lineFeed : ' ';
    } else if (!isHarmful(character)) {
      appendUtf8(result, character);
    } else {
      continue;
    }
    ++count;
  }
  return result;
}

/// The service takes the body for markup.
QString escaped(const std::string& text) {
  QString result = QString::fromStdString(text).toHtmlEscaped();
  return result.replace('\'', QLatin1String("&#39;"));
}

/// The socket of an address; of the length 0 when it names none.
std::pair<sockaddr_un, socklen_t> socketOf(const QByteArray& address) {
  sockaddr_un socket{};
  socket.sun_family = AF_UNIX;
  for (const QByteArray& part : address.mid(address.indexOf(':') + 1).split(',')) {
    const qsizetype value = part.indexOf('=') + 1;
    const bool isAbstract = part.startsWith("abstract=");
    if (!isAbstract && !part.startsWith("path=")) continue;
    const QByteArray name = (isAbstract ? QByteArray(1, '\0') : QByteArray()) +
                            QByteArray::fromPercentEncoding(part.mid(value));
    if (name.size() >= qsizetype{sizeof(socket.sun_path)}) break;
    std::copy(name.begin(), name.end(), socket.sun_path);
    return {socket, static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) +
                                           static_cast<std::size_t>(name.size()))};
  }
  return {socket, 0};
}

/// Whether somebody takes connections there at this moment. A bus that hangs has its queue full
/// some day, and whoever connects for good waits from then on.
bool takesConnections(const QByteArray& address) {
  const auto [name, length] = socketOf(address);
  const int probe = ::socket(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0);
  if (probe < 0) return false;
  const bool taken =
      length > 0 && ::connect(probe, reinterpret_cast<const sockaddr*>(&name), length) == 0;
  ::close(probe);
  return taken;
}

QDBusMessage callOf(const char* service, const char* path, const char* method) {
  return QDBusMessage::createMethodCall(QString::fromLatin1(service), QString::fromLatin1(path),
                                        QString::fromLatin1(service), QString::fromLatin1(method));
}

}  // namespace

DBusNotifier::DBusNotifier(std::string application, std::string desktopEntry)
    : application_(QString::fromStdString(application)),
      desktopEntry_(QString::fromStdString(desktopEntry)),
      connectionName_(QStringLiteral("notifier-%1").arg(reinterpret_cast<quintptr>(this))) {}

DBusNotifier::~DBusNotifier() {
  disconnect();
}

void DBusNotifier::disconnect() {
  if (connection_) QDBusConnection::disconnectFromPeer(connectionName_);
  connection_.reset();
}

bool DBusNotifier::connect() {
  if (connection_ && connection_->isConnected()) return true;
  disconnect();
  const auto address = QByteArray::fromStdString(sessionBusAddress());
  if (!takesConnections(address)) return false;
  // To connect as to a bus would mean to wait for its welcome. As to any peer, the greeting is
  // only the first message to be sent.
  connection_ = QDBusConnection::connectToPeer(QString::fromUtf8(address), connectionName_);
  return connection_->send(callOf("org.freedesktop.DBus", "/org/freedesktop/DBus", "Hello"));
}

void DBusNotifier::notify(const Notification& notification) {
  if (!connect()) return;
  constexpr unsigned kReplacesNone = 0;
  constexpr int kUsualTime = -1;
  auto call = callOf("org.freedesktop.Notifications", "/org/freedesktop/Notifications", "Notify");
  call << application_ << kReplacesNone << QString::fromStdString(notification.icon)
       << QString::fromStdString(cleaned(notification.summary, kLongestSummary, ' '))
       << escaped(cleaned(notification.body, kLongestBody, '\n')) << QStringList()
       << QVariantMap{{QStringLiteral("urgency"),
                       QVariant::fromValue(static_cast<uchar>(notification.urgency))},
                      {QStringLiteral("desktop-entry"), desktopEntry_}}
       << kUsualTime;
  connection_->send(call);
}

}  // namespace kv
