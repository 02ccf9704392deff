#include "tools/kvbackup/DocumentStore.h"

#include <fmt/format.h>
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
  std::string first() const { return home / kFirst; }
  std::string second() const { return home / kSecond; }
  std::vector<std::string> filesBeside() const {
    std::vector<std::string> names;
    for (const auto& entry : fs::directory_iterator(fs::path(second()).parent_path())) {
      names.push_back(entry.path().filename().string());
    }
    return names;
  }
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

PropertyList held(Task task) {
  return task.option("runState", false);
}

TEST(DocumentStore, ChangesOneRecordAndKeepsAllElse) {
  for (const auto encoding : {PropertyListEncoding::kXml, PropertyListEncoding::kBinary}) {
    Home home;
    Task docs = Task("Docs").daily("09:30").field("extra", PropertyList::Array{1, "x", true, 0.5});
    Task twin = Task("Docs").minutes("2024-03-05 10:00");
    const PropertyList stranger = PropertyList::Array{"no", "record"};
    home.setFirst(PropertyList::Array{stranger, docs, twin}, encoding);
    home.setSecond(PropertyList::Array{Task("Docs").weekly("08:00"), Task("Mine").daily("07:00")});
    const std::string secondBefore = readFile(home.second());

    home.hold("Docs");  // the first of its name only
    const std::string bytes = readFile(home.first());
    EXPECT_EQ(propertyListEncoding(bytes), encoding);
    EXPECT_EQ(readPropertyList(bytes),
              PropertyList(PropertyList::Array{stranger, held(docs), twin}));
    EXPECT_EQ(readFile(home.second()), secondBefore);

    const std::string firstBefore = readFile(home.first());
    home.store.remove("Mine");
    home.add("New");
    EXPECT_EQ(readFile(home.first()), firstBefore);
    EXPECT_EQ(readPropertyList(readFile(home.second())),
              PropertyList(PropertyList::Array{Task("Docs").weekly("08:00"),
                                               PropertyList::Dictionary{{"backupset", "New"}}}));
  }
}

TEST(DocumentStore, FollowsLinksAndKeepsPermissions) {
  Home home;
  home.setSecond(PropertyList::Array{Task("Docs").daily("09:30")});
  const std::string elsewhere = home.home / "elsewhere/sets.plist";
  fs::create_directories(home.home / "elsewhere");
  fs::rename(home.second(), elsewhere);
  fs::create_symlink("../../../elsewhere/sets.plist", home.second());
  ASSERT_EQ(::chmod(elsewhere.c_str(), 0640), 0);
  const auto before = fs::status(elsewhere).permissions();
  home.hold("Docs");
  EXPECT_TRUE(fs::is_symlink(home.second()));
  EXPECT_EQ(fs::status(elsewhere).permissions(), before);
  EXPECT_EQ(readPropertyList(readFile(elsewhere)),
            PropertyList(PropertyList::Array{held(Task("Docs").daily("09:30"))}));
}

TEST(DocumentStore, NeverOverwritesWhatItCannotRead) {
  const std::string record = writePropertyList(PropertyList::Array{Task("Docs").daily("09:30")},
                                               PropertyListEncoding::kXml);
  const std::string contents[] = {"", "no property list", record.substr(0, record.size() / 2),
                                  record + "<array/>",
                                  writePropertyList(PropertyList::Dictionary{{"backupset", "Docs"}},
                                                    PropertyListEncoding::kBinary)};
  for (const std::string& content : contents) {
    for (const char* broken : {kFirst, kSecond}) {
      Home home;
      const bool isFirst = broken == kFirst;
      writeFile(home.home / broken, content);
      writeFile(home.home / (isFirst ? kSecond : kFirst), record);
      EXPECT_EQ(home.status([&] { home.add("New"); }), ExitStatus::kDocumentUnreadable);
      EXPECT_EQ(home.status([&] { home.hold("Other"); }), ExitStatus::kDocumentUnreadable);
      EXPECT_EQ(readFile(home.home / (isFirst ? kSecond : kFirst)), record);
      // What stands in the sound document can be worked with all the same.
      EXPECT_EQ(home.status([&] { home.hold("Docs"); }), std::nullopt);
      EXPECT_EQ(readFile(home.home / broken), content);
    }
  }
  Home home;
  home.setFirst(PropertyList::Array{});
  fs::create_symlink("nowhere", home.second());
  EXPECT_EQ(home.status([&] { home.add("New"); }), ExitStatus::kDocumentUnreadable);
  EXPECT_TRUE(fs::is_symlink(home.second()));
}

TEST(DocumentStore, TellsUnknownAndDuplicateSets) {
  Home home;
  EXPECT_EQ(home.status([&] { home.hold("Docs"); }), ExitStatus::kUnknownSet);
  EXPECT_FALSE(fs::exists(home.home / "Library")) << "a question must leave nothing behind";
  home.add("Docs");
  EXPECT_EQ(home.status([&] { home.add("Docs"); }), ExitStatus::kDuplicateName);
  home.setFirst(PropertyList::Array{Task("Old").daily("09:30")});
  EXPECT_EQ(home.status([&] { home.add("Old"); }), ExitStatus::kDuplicateName);
  EXPECT_EQ(home.store.read()[1].records.size(), 1u);
}

TEST(DocumentStore, LosesNothingToAnotherWriter) {
  Home home;
  constexpr int kWriters = 4;
  constexpr int kSets = 12;
  std::vector<std::thread> writers;
  for (int writer = 0; writer < kWriters; ++writer) {
    writers.emplace_back([&home, writer] {
      DocumentStore store(*home.files, home.home.path().string());
      for (int set = 0; set < kSets; ++set) {
        const std::string name = fmt::format("{}-{}", writer, set);
        const auto refused = home.status([&] {
          store.add(name, PropertyList::Dictionary{{"backupset", name}});
          if (set % 3 == 2) store.remove(name);
        });
        EXPECT_EQ(refused, std::nullopt) << name;
      }
    });
  }
  for (std::thread& writer : writers) writer.join();
  EXPECT_EQ(home.store.read()[1].records.size(), kWriters * kSets * 2u / 3u);
}

/// Files can grow to `bytes` and no further, as on a full disk.
class ScopedFileLimit {
 public:
  explicit ScopedFileLimit(rlim_t bytes) : oldReaction_(::signal(SIGXFSZ, SIG_IGN)) {
    ::getrlimit(RLIMIT_FSIZE, &old_);
    rlimit limit = old_;
    limit.rlim_cur = bytes;
    ::setrlimit(RLIMIT_FSIZE, &limit);
  }
  ~ScopedFileLimit() {
    ::setrlimit(RLIMIT_FSIZE, &old_);
    ::signal(SIGXFSZ, oldReaction_);
  }

 private:
  sighandler_t oldReaction_;
  rlimit old_{};
};

TEST(DocumentStore, KeepsTheOldContentWhenTheDiskIsFull) {
  Home home;
  home.setSecond(PropertyList::Array{Task("Docs").daily("09:30")}, PropertyListEncoding::kXml);
  home.hold("Docs");
  const std::string before = readFile(home.second());
  const auto filesBefore = home.filesBeside();
  {
    const ScopedFileLimit limit(before.size() / 2);
    EXPECT_EQ(home.status([&] { home.add("New"); }), ExitStatus::kDocumentNotWritten);
    EXPECT_EQ(readFile(home.second()), before);
    EXPECT_EQ(home.status([&] { home.store.remove("Docs"); }), std::nullopt)
        << "an empty list still fits";
  }
  EXPECT_EQ(home.filesBeside(), filesBefore) << "no temporary file may stay";
  EXPECT_THAT(home.store.read()[1].records, testing::IsEmpty());
}

}  // namespace
}  // namespace kv::test
