#include "tools/kvbackup/DocumentStore.h"

#include <gmock/gmock.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/stat.h>

#include <filesystem>
#include <functional>
#include <optional>
#include <thread>

#include "tests/support/World.h"
#include "tools/kvbackup/BackupSet.h"
#include "tools/kvbackup/ExitStatus.h"

namespace kv::test {
namespace {

namespace fs = std::filesystem;

const char* const kFirst = ScheduleDocuments::kFirst;
const char* const kSecond = ScheduleDocuments::kSecond;

/// A home with its store; `status` tells how an operation was refused.
struct Home : World {
  const std::string second = home / kSecond;
  void hold(const std::string& name) {
    store.edit(name, [](PropertyList::Dictionary& record) {
      BackupSet::options(record).set("runState", false);
    });
  }
  void add(const std::string& name) {
    store.add(name, PropertyList::Dictionary{{"backupset", name}});
  }
  std::optional<ExitStatus> status(const std::function<void()>& operation) {
    try {
      operation();
    } catch (const Refusal& refusal) {
      return refusal.status();
    }
    return std::nullopt;
  }

  DocumentStore store{*files, home.path().string()};
};

TEST(DocumentStore, ChangesOneRecordAndKeepsAllElse) {
  for (const auto encoding : {PropertyListEncoding::kXml, PropertyListEncoding::kBinary}) {
    Home home;
    Task docs = Task("Docs").daily("09:30").field("extra", PropertyList::Array{1, "x", true, 0.5});
    Task twin = Task("Docs").minutes("2024-03-05 10:00");
    const PropertyList stranger = PropertyList::Array{"no", "record"};
    home.setFirst(PropertyList::Array{stranger, docs, twin}, encoding);
    home.setSecond(PropertyList::Array{Task("Docs").weekly("08:00"), Task("Mine").daily("07:00")});
    const std::string secondBefore = readFile(home.second);
    home.hold("Docs");  // the first of its name only
    const std::string bytes = readFile(home.home / kFirst);
    EXPECT_EQ(propertyListEncoding(bytes), encoding);
    EXPECT_EQ(readPropertyList(bytes),
              PropertyList(PropertyList::Array{stranger, docs.option("runState", false), twin}));
    EXPECT_EQ(readFile(home.second), secondBefore);

    const std::string firstBefore = readFile(home.home / kFirst);
    home.store.remove("Mine");
    home.add("New");
    EXPECT_EQ(readFile(home.home / kFirst), firstBefore);
    EXPECT_EQ(readPropertyList(readFile(home.second)),
              PropertyList(PropertyList::Array{Task("Docs").weekly("08:00"),
                                               PropertyList::Dictionary{{"backupset", "New"}}}));
  }
}

TEST(DocumentStore, FollowsLinksAndKeepsPermissions) {
  Home home;
  home.setSecond(PropertyList::Array{Task("Docs").daily("09:30")});
  const std::string elsewhere = home.home / "elsewhere/sets.plist";
  fs::create_directories(home.home / "elsewhere");
  fs::rename(home.second, elsewhere);
  fs::create_symlink("../../../elsewhere/sets.plist", home.second);
  ASSERT_EQ(::chmod(elsewhere.c_str(), 0640), 0);
  home.hold("Docs");
  EXPECT_TRUE(fs::is_symlink(home.second));
  EXPECT_EQ(fs::status(elsewhere).permissions(), fs::perms(0640));
  EXPECT_EQ(
      readPropertyList(readFile(elsewhere)),
      PropertyList(PropertyList::Array{Task("Docs").daily("09:30").option("runState", false)}));
}

TEST(DocumentStore, NeverOverwritesWhatItCannotRead) {
  const std::string record = writePropertyList(PropertyList::Array{Task("Docs").daily("09:30")},
                                               PropertyListEncoding::kXml);
  for (const std::string& content :
       {std::string(), record.substr(0, record.size() / 2), record + "<array/>",
        writePropertyList(PropertyList::Dictionary{}, PropertyListEncoding::kBinary)}) {
    for (const char* broken : {kFirst, kSecond}) {
      Home home;
      const std::string sound = home.home / (broken == kFirst ? kSecond : kFirst);
      writeFile(home.home / broken, content);
      writeFile(sound, record);
      EXPECT_EQ(home.status([&] { home.add("New"); }), ExitStatus::kDocumentUnreadable);
      EXPECT_EQ(home.status([&] { home.hold("Other"); }), ExitStatus::kDocumentUnreadable);
      EXPECT_EQ(readFile(sound), record);
      EXPECT_EQ(home.status([&] { home.hold("Docs"); }), std::nullopt) << "its document is sound";
      EXPECT_EQ(readFile(home.home / broken), content);
    }
  }
}

TEST(DocumentStore, TellsUnknownAndDuplicateSets) {
  Home home;
  EXPECT_EQ(home.status([&] { home.hold("Docs"); }), ExitStatus::kUnknownSet);
  EXPECT_FALSE(fs::exists(home.home / "Library")) << "a question must leave nothing behind";
  home.add("Docs");
  EXPECT_EQ(home.status([&] { home.add("Docs"); }), ExitStatus::kDuplicateName);
}

TEST(DocumentStore, LosesNothingToAnotherWriter) {
  Home home;
  constexpr int kSets = 12;
  std::vector<std::thread> writers;
  for (const std::string writer : {"a", "b", "c"}) {
    writers.emplace_back([&home, writer] {
      DocumentStore store(*home.files, home.home.path().string());
      for (int set = 0; set < kSets; ++set) {
        const std::string name = writer + std::to_string(set);
        store.add(name, PropertyList::Dictionary{{"backupset", name}});
        if (set % 3 == 2) store.remove(name);
      }
    });
  }
  for (std::thread& writer : writers) writer.join();
  EXPECT_EQ(home.store.read()[1].records.size(), writers.size() * kSets * 2 / 3);
}

TEST(DocumentStore, KeepsTheOldContentWhenTheDiskIsFull) {
  Home home;
  home.add("Docs");
  const std::string before = readFile(home.second);
  rlimit old{};
  ::getrlimit(RLIMIT_FSIZE, &old);
  const rlimit full{before.size(), old.rlim_max};
  const auto reaction = ::signal(SIGXFSZ, SIG_IGN);
  ::setrlimit(RLIMIT_FSIZE, &full);
  EXPECT_EQ(home.status([&] { home.add("A long name"); }), ExitStatus::kDocumentNotWritten);
  ::setrlimit(RLIMIT_FSIZE, &old);
  ::signal(SIGXFSZ, reaction);
  EXPECT_EQ(readFile(home.second), before);
  const fs::directory_iterator files(fs::path(home.second).parent_path());
  EXPECT_EQ(std::distance(files, {}), 2) << "no temporary file may stay beside document and lock";
}

}  // namespace
}  // namespace kv::test
