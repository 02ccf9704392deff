#include "platform/qt/DBusNotifier.h"

#include <gmock/gmock.h>
#include <sys/socket.h>
#include <sys/un.h>

#include <QDBusArgument>
#include <QDBusMessage>
#include <QDBusVirtualObject>
#include <QElapsedTimer>
#include <optional>
#include <vector>

#include "platform/linux/Descriptor.h"
#include "tests/app/PrivateBus.h"
#include "tests/support/RunUntil.h"
#include "tests/support/ScopedEnvironment.h"
#include "tests/support/TemporaryFolder.h"

namespace kv::test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

/// The desktop's part: keeps what it is to show.
class NotificationService final : public QDBusVirtualObject {
 public:
  explicit NotificationService(const PrivateBus& bus)
      : connection_(QDBusConnection::connectToBus(QString::fromLatin1(bus.address), kName)) {
    connection_.registerVirtualObject("/org/freedesktop/Notifications", this);
    isThere = connection_.registerService("org.freedesktop.Notifications");
  }
  ~NotificationService() override { QDBusConnection::disconnectFromBus(kName); }

  bool handleMessage(const QDBusMessage& message, const QDBusConnection&) override {
    if (message.interface() != "org.freedesktop.Notifications") return false;
    calls.push_back(message);
    return true;
  }
  QString introspect(const QString&) const override { return QString(); }

  /// The first `count` calls that arrive, as "summary|body".
  std::vector<std::string> texts(std::size_t count) {
    runUntil([&] { return calls.size() >= count; });
    std::vector<std::string> all;
    for (const auto& call : calls) {
      const QVariantList arguments = call.arguments();
      all.push_back((arguments[3].toString() + "|" + arguments[4].toString()).toStdString());
    }
    return all;
  }

  bool isThere = false;
  std::vector<QDBusMessage> calls;

 private:
  static constexpr QLatin1String kName{"the test's desktop"};
  QDBusConnection connection_;
};

struct DBusNotifierTest : testing::Test {
  TemporaryFolder folder_;
  ScopedEnvironment address_{"DBUS_SESSION_BUS_ADDRESS", nullptr};
  ScopedEnvironment runtime_{"XDG_RUNTIME_DIR", folder_.path().c_str()};
  DBusNotifier notifier_{"The Agent", "org.example.Agent"};
};

TEST_F(DBusNotifierTest, CallsTheServiceWithAllItNeeds) {
  const PrivateBus bus(folder_.path());
  NotificationService service(bus);
  ASSERT_TRUE(service.isThere);
  notifier_.notify({"summary", "body", Notification::Urgency::kCritical, "picture"});
  ASSERT_THAT(service.texts(1), ElementsAre("summary|body"));
  EXPECT_EQ(service.calls[0].member(), "Notify");
  EXPECT_EQ(service.calls[0].signature(), "susssasa{sv}i");
  const QVariantList arguments = service.calls[0].arguments();
  EXPECT_EQ(arguments[0].toString(), "The Agent");
  EXPECT_EQ(arguments[1].toUInt(), 0u);
  EXPECT_EQ(arguments[2].toString(), "picture");
  EXPECT_EQ(arguments[7].toInt(), -1);
  const auto hints = qdbus_cast<QVariantMap>(arguments[6]);
  EXPECT_EQ(hints["urgency"], QVariant::fromValue<uchar>(2));
  EXPECT_EQ(hints["desktop-entry"].toString(), "org.example.Agent");
}

TEST_F(DBusNotifierTest, MakesTextsHarmless) {
  const PrivateBus bus(folder_.path());
  address_.set("autolaunch:;" + bus.address);
  runtime_.set(nullptr);
  NotificationService service(bus);
  const auto notify = [&](const std::string& summary, const std::string& body) {
    notifier_.notify({summary, body, Notification::Urgency::kNormal, ""});
  };
  notify("a\nb\tc\x1b <&>", "<b>&\"'\x7f\r\n\xc2\x85x\xff");
  const std::string long200 = std::string(199, 'x') + "ä";
  const std::string long1000(1000, '<');
  notify(long200 + "y", long1000 + "<");
  std::string escaped;
  for (int count = 0; count < 1000; ++count) escaped += "&lt;";
  EXPECT_THAT(service.texts(2), ElementsAre("a b c <&>|&lt;b&gt;&amp;&quot;&#39;\nx\xEF\xBF\xBD",
                                            long200 + "|" + escaped));
}

TEST_F(DBusNotifierTest, FindsTheNextBusWhenOneHasEnded) {
  std::optional<PrivateBus> bus(folder_.path());
  notifier_.notify({"to the first bus", "", Notification::Urgency::kNormal, ""});
  bus.emplace(folder_.path());
  NotificationService service(*bus);
  // The connection learns of the end of the first bus by and by.
  EXPECT_TRUE(runUntil([&] {
    notifier_.notify({"again", "", Notification::Urgency::kNormal, ""});
    return runUntil([&] { return !service.calls.empty(); }, 50);
  }));
}

TEST_F(DBusNotifierTest, StartsNoBus) {
  const std::string started = folder_ / "started";
  const std::string program = folder_ / "dbus-launch";
  writeFile(program, "#!/bin/sh\n: >'" + started + "'\n");
  std::filesystem::permissions(program, std::filesystem::perms::owner_all);
  const ScopedEnvironment path("PATH", folder_.path().c_str()), display("DISPLAY", ":97");
  const std::string address = "unixexec:path=" + program;
  for (const char* bus : {static_cast<const char*>(nullptr), "autolaunch:", "unix:path=/no/such",
                          "unix:", "nonsense", address.c_str()}) {
    address_.set(bus);
    notifier_.notify({"summary", "", Notification::Urgency::kNormal, ""});
  }
  EXPECT_FALSE(std::filesystem::exists(started));
}

TEST_F(DBusNotifierTest, NeverWaitsForABusThatHangs) {
  sockaddr_un name{AF_UNIX, {}};
  (folder_ / "bus").copy(name.sun_path, sizeof(name.sun_path) - 1);
  const auto* address = reinterpret_cast<const sockaddr*>(&name);
  const Descriptor bus(::socket(AF_UNIX, SOCK_STREAM, 0));
  ASSERT_EQ(::bind(bus.number(), address, sizeof name), 0);
  ASSERT_EQ(::listen(bus.number(), 4), 0);
  QElapsedTimer elapsed;
  elapsed.start();
  notifier_.notify({"waits in the connection", "", Notification::Urgency::kNormal, ""});
  std::vector<Descriptor> others;
  do {
    others.emplace_back(::socket(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK, 0));
  } while (::connect(others.back().number(), address, sizeof name) == 0);
  notifier_.notify({"waits there too", "", Notification::Urgency::kNormal, ""});
  DBusNotifier late("The Agent", "org.example.Agent");
  late.notify({"is not even connected", "", Notification::Urgency::kNormal, ""});
  EXPECT_LT(elapsed.elapsed(), 10'000) << "a bus has 25 seconds for its welcome";
}

}  // namespace
}  // namespace kv::test
