#include "app/AgentService.h"

#include <gmock/gmock.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <QDBusConnection>
#include <QDBusMessage>
#include <cmath>
#include <future>
#include <limits>
#include <optional>
#include <vector>

#include "platform/SessionBusAddress.h"
#include "platform/linux/Descriptor.h"
#include "platform/qt/QtDescriptorWatcher.h"
#include "platform/sdbus/BusClient.h"
#include "tests/app/AgentProcess.h"
#include "tests/app/HostWorld.h"
#include "tests/app/PrivateBus.h"
#include "tests/support/RunUntil.h"

namespace kv::test {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using Dictionary = PropertyList::Dictionary;
using Array = PropertyList::Array;

const BusQuery kQuery{AgentService::kName, AgentService::kPath, AgentService::kInterface};

/// What a program asks while the event loop of the agent turns.
std::optional<Dictionary> ask(const std::string& address, std::string& problem,
                              Seconds limit = Seconds(20)) {
  BusQuery query = kQuery;
  query.limit = limit;
  auto asked =
      std::async(std::launch::async, [&] { return query.allProperties(address, problem); });
  while (asked.wait_for(std::chrono::milliseconds(1)) != std::future_status::ready) {
    QCoreApplication::processEvents();
  }
  return asked.get();
}

/// Asks until there is an answer, since nobody tells when the name is the agent's.
template <class Attend>
std::optional<Dictionary> askUntilAnswered(const std::string& address, std::string& problem,
                                           Attend&& attend) {
  std::optional<Dictionary> values;
  for (const QDeadlineTimer limit(30'000); !values && problem.empty() && !limit.hasExpired();) {
    attend();
    values = ask(address, problem);
  }
  return values;
}

/// Calls the agent and counts its signals, through a library of its own.
class Caller : public QObject {
  Q_OBJECT
 public:
  explicit Caller(const PrivateBus& bus)
      : connection_(QDBusConnection::connectToBus(QString::fromLatin1(bus.address), "caller")) {
    connection_.connect("", AgentService::kPath, AgentService::kInterface, "Changed", this,
                        SLOT(changed()));
  }
  ~Caller() override { QDBusConnection::disconnectFromBus("caller"); }

  QDBusMessage call(const char* interface, const char* method, const QVariantList& arguments) {
    auto message =
        QDBusMessage::createMethodCall(AgentService::kName, AgentService::kPath,
                                       QString::fromLatin1(interface), QString::fromLatin1(method));
    message.setArguments(arguments);
    return connection_.call(message, QDBus::BlockWithGui);
  }
  Q_SLOT void changed() { ++changes; }

  int changes = 0;

 private:
  QDBusConnection connection_;
};

constexpr const char* kProperties = "org.freedesktop.DBus.Properties";

struct AgentServiceTest : testing::Test {
  AgentService::Environment environment() {
    return {.watcher = std::make_shared<QtDescriptorWatcher>(),
            .systemLog = systemLog_,
            .decisions = decisions_,
            .describeState = [this] { return state_; },
            .isTracing = [] { return true; },
            .address = [this] { return "unix:path=" + folder_.path().string() + "/bus"; },
            .facts = {{"Version", "1"}, {"Documents", Array{"/a", "/b"}}}};
  }
  /// Connects, and waits until the name is the service's.
  std::optional<Dictionary> connectAndAsk(AgentService& service) {
    return askUntilAnswered("unix:path=" + (folder_ / "bus"), problem_, [&] { service.attend(); });
  }

  TemporaryFolder folder_;
  std::shared_ptr<RecordingSystemLog> systemLog_ = std::make_shared<RecordingSystemLog>();
  std::shared_ptr<DecisionRecord> decisions_ = std::make_shared<DecisionRecord>();
  std::optional<PropertyList> state_;
  std::string problem_;
};

TEST_F(AgentServiceTest, TellsWhatItKnowsAndLeavesOutTheRest) {
  const PrivateBus bus(folder_.path());
  AgentService service(environment());
  const auto bare = connectAndAsk(service);
  ASSERT_TRUE(bare) << problem_;
  EXPECT_EQ(bare->find("Paused"), nullptr) << "the host has said nothing";
  EXPECT_EQ(*bare->find("Tracing"), true);
  EXPECT_EQ(*bare->find("Documents"), (Array{"/a", "/b"}));

  const TaskList list = {Task("Docs").daily("09:00"), Task("Mail").daily("09:00")};
  decisions_->tickBegan(Date::fromUnixSeconds(1000.5), list);
  decisions_->judged(list[1], Outcome::kLaunched);
  state_ = Dictionary{{"pause", Dictionary{{"until", Date::fromUnixSeconds(99)}}},
                      {"run", Dictionary{{"set", "M"}, {"since", "never"}}},
                      {"log", 7},
                      {"sets", Array{Dictionary{{"index", 1}, {"name", "Mail"}}, "no set"}}};
  const auto values = connectAndAsk(service);
  ASSERT_TRUE(values) << problem_;
  const std::pair<const char*, PropertyList> kExpected[] = {
      {"Paused", true},
      {"PausedUntil", 99},
      {"RunningSet", "M"},
      {"RunningSince", 0},
      {"LogPath", ""},
      {"LastTick", 1000},
      {"Sets",
       Array{Dictionary{{"index", 1}, {"name", "Mail"}, {"lastLaunch", 1000}}, Dictionary{}}},
      {"LastDecisions", Array{Dictionary{{"index", 0}, {"name", "Docs"}, {"outcome", ""}},
                              Dictionary{{"index", 1}, {"name", "Mail"}, {"outcome", "launched"}}}},
  };
  for (const auto& [name, value] : kExpected) {
    ASSERT_NE(values->find(name), nullptr) << name;
    EXPECT_EQ(*values->find(name), value) << values->find(name)->description();
  }
}

TEST_F(AgentServiceTest, SurvivesWhateverTheHostSays) {
  const PrivateBus bus(folder_.path());
  AgentService service(environment());
  PropertyList deep = "x";
  for (int level = 0; level < 90; ++level) deep = Dictionary{{"inner", deep}};
  const double nan = std::numeric_limits<double>::quiet_NaN();
  state_ =
      Dictionary{{"application", std::string("a\0b\xff\n\x1b", 6)},
                 {"run", Array{}},
                 {"sets", Array{Dictionary{{std::string("k\0", 2), nan},
                                           {"deep", deep},
                                           {"mixed", Array{1, "x"}},
                                           {"date", Date::fromUnixSeconds(nan)},
                                           {"index", std::numeric_limits<std::int64_t>::max()}}}}};
  const auto values = connectAndAsk(service);
  ASSERT_TRUE(values) << problem_;
  EXPECT_EQ(*values->find("Application"),
            "a\xEF\xBF\xBD"
            "b\xEF\xBF\xBD\n\x1b");
  EXPECT_EQ(*values->find("Running"), false);
}

TEST_F(AgentServiceTest, AnswersWrongCallsWithAnError) {
  const PrivateBus bus(folder_.path());
  AgentService service(environment());
  ASSERT_TRUE(connectAndAsk(service)) << problem_;
  Caller caller(bus);
  const QString ours = AgentService::kInterface;
  const std::tuple<const char*, const char*, QVariantList, const char*> kCases[] = {
      {kProperties, "Get", {ours, "Version"}, ""},
      {kProperties, "Get", {ours, "Paused"}, "org.freedesktop.DBus.Error.UnknownProperty"},
      {kProperties, "Get", {"x.y", "Version"}, "org.freedesktop.DBus.Error.UnknownProperty"},
      {kProperties, "Get", {5}, "org.freedesktop.DBus.Error.InvalidArgs"},
      {kProperties, "GetAll", {}, "org.freedesktop.DBus.Error.InvalidArgs"},
      {kProperties, "Set", {ours, "Version", 1}, "org.freedesktop.DBus.Error.PropertyReadOnly"},
      {AgentService::kInterface, "Run", {"Docs"}, "org.freedesktop.DBus.Error.UnknownMethod"},
      {"org.freedesktop.DBus.Introspectable", "Introspect", {}, ""},
  };
  for (const auto& [interface, method, arguments, error] : kCases) {
    EXPECT_EQ(caller.call(interface, method, arguments).errorName().toStdString(), error)
        << method << arguments.size();
  }
}

TEST_F(AgentServiceTest, AnnouncesChangesOnceAndNothingElse) {
  const PrivateBus bus(folder_.path());
  AgentService service(environment());
  ASSERT_TRUE(connectAndAsk(service)) << problem_;
  Caller caller(bus);
  // All signals that came, once those that are expected are there and a further call was answered.
  const auto changes = [&](int expected) {
    runUntil([&] { return caller.changes >= expected; });
    caller.call(kProperties, "GetAll", {""});
    QCoreApplication::processEvents();
    return std::exchange(caller.changes, 0);
  };
  const TaskList list = {Task("Docs").daily("09:00")};
  const auto tick = [&](Outcome outcome) {
    decisions_->tickBegan(Date(), list);
    decisions_->judged(list[0], outcome);
    service.attend();
  };
  ASSERT_EQ(changes(0), 0);
  tick(Outcome::kNotDue);
  service.noteChange();
  service.noteChange();
  EXPECT_EQ(changes(1), 1);
  tick(Outcome::kNotDue);
  EXPECT_EQ(changes(0), 0) << "a tick alone is no change";
  tick(Outcome::kHeld);
  EXPECT_EQ(changes(1), 1);
}

TEST_F(AgentServiceTest, FindsTheNextBusWhenOneHasEnded) {
  std::optional<PrivateBus> bus(folder_.path());
  AgentService service(environment());
  ASSERT_TRUE(connectAndAsk(service)) << problem_;
  bus.reset();
  service.noteChange();
  service.attend();
  bus.emplace(folder_.path());
  EXPECT_TRUE(connectAndAsk(service)) << problem_;
  EXPECT_THAT(systemLog_->lines, IsEmpty());
}

TEST_F(AgentServiceTest, DoesWithoutABusAndNeverWaitsForOneThatHangs) {
  AgentService service(environment());
  service.attend();
  service.noteChange();
  EXPECT_THAT(systemLog_->lines, IsEmpty());
  sockaddr_un name{AF_UNIX, {}};
  (folder_ / "bus").copy(name.sun_path, sizeof(name.sun_path) - 1);
  const auto* address = reinterpret_cast<const sockaddr*>(&name);
  const Descriptor bus(::socket(AF_UNIX, SOCK_STREAM, 0));
  ASSERT_EQ(::bind(bus.number(), address, sizeof name), 0);
  AgentService refused(environment());
  refused.attend();
  refused.attend();
  EXPECT_THAT(systemLog_->lines, ElementsAre(HasSubstr("the session bus cannot be used (Conn")));
  ASSERT_EQ(::listen(bus.number(), 0), 0);
  service.attend();
  service.noteChange();
  service.attend();
  EXPECT_FALSE(ask("unix:path=" + (folder_ / "bus"), problem_, Seconds(0.01)));
  EXPECT_NE(problem_, "");
  AgentService late(environment());
  late.attend();
  EXPECT_EQ(systemLog_->lines.size(), 2u) << "its queue is full";
}

TEST_F(AgentServiceTest, ServesItsOwnUserOnItsOwnBusOnly) {
  if (::geteuid() != 0) GTEST_SKIP() << "only root can be another user";
  const QStringList asNobody = {"setpriv", "--reuid=65534", "--regid=65534", "--clear-groups"};
  std::filesystem::permissions(folder_.path(), std::filesystem::perms::all);
  AgentService service(environment());
  std::optional<PrivateBus> bus(folder_.path());
  ASSERT_TRUE(connectAndAsk(service)) << problem_;
  QProcess stranger;
  QStringList command = asNobody;
  command << "busctl"
          << "--address=" + QString::fromLatin1(bus->address) << "get-property"
          << AgentService::kName << AgentService::kPath << AgentService::kInterface << "Version";
  stranger.start(command.takeFirst(), command);
  runUntil([&] { return stranger.state() == QProcess::NotRunning; });
  EXPECT_THAT(stranger.readAllStandardError().toStdString(), HasSubstr("Access denied"));
  bus.reset();
  std::filesystem::remove(folder_ / "bus");
  bus.emplace(folder_.path(), asNobody);
  AgentService elsewhere(environment());
  elsewhere.attend();
  EXPECT_THAT(systemLog_->lines, ElementsAre(HasSubstr("it is another user's")));
}

TEST(AgentOnABus, TellsOfItsSets) {
  AgentFolders folders;
  const PrivateBus bus(folders.root / "runtime");
  folders.writeScript(defaultHost());
  writeFile(folders.root / ("home/" + std::string(ScheduleDocuments::kFirst)),
            writePropertyList(Array{"no set", Task("Docs").off()}, PropertyListEncoding::kXml));
  AgentProcess agent(folders);
  std::string problem;
  const auto values = askUntilAnswered(bus.address.toStdString(), problem, [] {});
  ASSERT_TRUE(values) << problem << agent.errors();
  EXPECT_EQ(*values->find("ProcessId"), agent.pid());
  const auto* sets = values->find("Sets")->as<Array>();
  ASSERT_EQ(sets->size(), 1u);
  const auto* set = sets->front().as<Dictionary>();
  EXPECT_EQ(*set->find("index"), 1);
  EXPECT_EQ(*set->find("state"), "not scheduled");
  agent.signal(SIGTERM);
  EXPECT_EQ(agent.exitStatus(), 0);
}

TEST(SessionBusAddress, IsASocketOfTheEnvironment) {
  const std::tuple<const char*, const char*, const char*> kCases[] = {
      {"unix:abstract=/a,guid=1", "/run", "unix:abstract=/a,guid=1"},
      {"autolaunch:;unix:path=/b;unix:path=/c", "/run", "unix:path=/b"},
      {"unixexec:path=/bin/sh", "/run", ""},
      {"", "/run/us er;", "unix:path=/run/us%20er%3b/bus"},
      {nullptr, "relative", ""},
      {nullptr, nullptr, ""},
  };
  for (const auto& [given, folder, address] : kCases) {
    const ScopedEnvironment bus("DBUS_SESSION_BUS_ADDRESS", given);
    const ScopedEnvironment runtime("XDG_RUNTIME_DIR", folder);
    EXPECT_EQ(sessionBusAddress(), address);
  }
}

TEST(DecisionRecord, KeepsTheLastTickAndForgetsSetsThatAreGone) {
  DecisionRecord record;
  TaskList list = {Task("A").daily("09:00"), "no set", Task("B").daily("09:00")};
  const Date first = Date::fromUnixSeconds(1), second = Date::fromUnixSeconds(2);
  record.tickBegan(first, list);
  record.judged(list[0], Outcome::kAsked);
  record.judged(list[2], Outcome::kAnotherFirst);
  EXPECT_TRUE(record.takeChanged());
  record.tickBegan(second, list);
  record.judged(list[2], Outcome::kAnotherFirst);
  EXPECT_TRUE(record.takeChanged());
  EXPECT_FALSE(record.takeChanged());
  EXPECT_EQ(record.entries()[0].outcome, std::nullopt);
  EXPECT_EQ(record.entries()[1].name, "");
  EXPECT_EQ(record.lastLaunch("A"), first);
  EXPECT_EQ(record.lastLaunch("B"), std::nullopt);
  list.erase(list.begin());
  record.tickBegan(second, list);
  EXPECT_EQ(record.lastLaunch("A"), std::nullopt);
  EXPECT_TRUE(record.takeChanged());
}

}  // namespace
}  // namespace kv::test

#include "AgentServiceTest.moc"
