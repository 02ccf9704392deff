#include "logging/DDLogFileInfo.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <map>

#include "tests/support/Fakes.h"
#include "tests/support/ForwardingFiles.h"
#include "tests/support/RecordingSystemLog.h"
#include "tests/support/TemporaryFolder.h"

namespace kv::test {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

/// Real files of which a test sets the attributes and the refusals.
class ScriptedFiles final : public ForwardingFiles {
 public:
  std::optional<FileAttributes> attributes(Path path) override {
    ++attributeReads;
    const auto found = scripted.find(path);
    return found == scripted.end() ? real_.attributes(path) : found->second;
  }
  FileResult remove(Path path) override {
    if (refusesRemoval) return {FileResult::Kind::kRefused, "Operation not permitted"};
    return real_.remove(path);
  }
  std::map<std::string, FileAttributes> scripted;
  bool refusesRemoval = false;
  int attributeReads = 0;
};

class DDLogFileInfoTest : public ::testing::Test {
 protected:
  std::shared_ptr<DDLogFileInfo> infoOf(const std::string& file) {
    return std::make_shared<DDLogFileInfo>(file,
                                           DDLogFileInfo::Environment{files, clock, systemLog});
  }
  std::shared_ptr<DDLogFileInfo> datedInfo(const std::string& file, std::optional<double> created,
                                           std::optional<double> modified) {
    if (created) {
      files->scripted[file].creationDate = Date::fromUnixSeconds(*created);
      files->scripted[file].modificationDate = Date::fromUnixSeconds(*modified);
    }
    return infoOf(file);
  }

  TemporaryFolder folder;
  const std::string path = folder / "a.log";
  std::shared_ptr<ScriptedFiles> files = std::make_shared<ScriptedFiles>();
  std::shared_ptr<FakeClock> clock = std::make_shared<FakeClock>();
  std::shared_ptr<RecordingSystemLog> systemLog = std::make_shared<RecordingSystemLog>();
};

TEST_F(DDLogFileInfoTest, KnowsNothingOfAMissingFileUntilItIsThere) {
  const auto info = infoOf(path);
  EXPECT_EQ(info->fileName(), "a.log");
  EXPECT_FALSE(info->fileAttributes());
  EXPECT_FALSE(info->creationDate());
  EXPECT_FALSE(info->modificationDate());
  EXPECT_EQ(info->fileSize(), 0u);
  EXPECT_EQ(info->age(), 0.0);
  EXPECT_FALSE(info->isArchived());
  EXPECT_THAT(systemLog->lines, IsEmpty());
  info->setIsArchived(true);
  info->setIsArchived(false);
  EXPECT_THAT(systemLog->lines,
              ElementsAre("DDLogFileInfo: setxattr(kelvara.log.archived, a.log): "
                          "error = No such file or directory",
                          "DDLogFileInfo: removexattr(kelvara.log.archived, a.log): "
                          "error = No such file or directory"));
  writeFile(path, "123");
  EXPECT_EQ(info->fileSize(), 3u);
  EXPECT_TRUE(info->creationDate());
}

TEST_F(DDLogFileInfoTest, KeepsTheArchivedMarkOnTheFile) {
  writeFile(path, "");
  const auto info = infoOf(path);
  info->setIsArchived(false);
  EXPECT_THAT(systemLog->lines, IsEmpty()) << "there was no mark to take away";
  info->setIsArchived(true);
  info->setIsArchived(true);
  EXPECT_TRUE(infoOf(path)->isArchived());
  EXPECT_TRUE(files->findExtendedAttribute(path, "kelvara.log.archived").isDone());
  std::filesystem::rename(path, folder / "b.log");
  EXPECT_FALSE(info->isArchived());
  const auto moved = infoOf(folder / "b.log");
  EXPECT_TRUE(moved->isArchived());
  moved->setIsArchived(false);
  EXPECT_FALSE(moved->isArchived());
  EXPECT_THAT(systemLog->lines, IsEmpty());
}

TEST_F(DDLogFileInfoTest, KeepsTheFirstSizeThatIsNotZero) {
  writeFile(path, "");
  const auto info = infoOf(path);
  EXPECT_EQ(info->fileSize(), 0u);
  writeFile(path, "123");
  EXPECT_EQ(info->fileSize(), 3u);
  writeFile(path, "123456");
  info->reset();
  EXPECT_EQ(info->fileSize(), 3u);
  EXPECT_EQ(info->fileAttributes()->sizeBytes, 6u);
}

TEST_F(DDLogFileInfoTest, IsAsOldAsItsFileUntilItIsReset) {
  const auto info = datedInfo(path, 1000, 1500);
  clock->present = Date::fromUnixSeconds(1010);
  EXPECT_EQ(info->age(), 10.0);
  files->scripted[path].creationDate = Date::fromUnixSeconds(1008);
  EXPECT_EQ(info->age(), 10.0);
  info->reset();
  EXPECT_EQ(info->age(), 2.0);
  EXPECT_EQ(info->modificationDate(), Date::fromUnixSeconds(1500));
}

TEST_F(DDLogFileInfoTest, TakesAnotherNameInItsFolder) {
  writeFile(path, "text");
  writeFile(folder / "b.log", "older text");
  const auto info = infoOf(path);
  info->renameFile("a.log");
  EXPECT_EQ(readFile(path), "text");
  info->renameFile("b.log");
  EXPECT_EQ(info->filePath(), folder / "b.log");
  EXPECT_EQ(info->fileName(), "b.log");
  EXPECT_EQ(readFile(folder / "b.log"), "text");
  EXPECT_FALSE(std::filesystem::exists(path));
  EXPECT_THAT(systemLog->lines, IsEmpty());
}

TEST_F(DDLogFileInfoTest, ReportsARefusedRenamingAndGoesByTheNewName) {
  writeFile(path, "text");
  writeFile(folder / "b.log", "stays");
  files->refusesRemoval = true;
  const auto info = infoOf(path);
  info->fileAttributes();
  info->renameFile("b.log");
  EXPECT_THAT(systemLog->lines,
              ElementsAre("DDLogFileInfo: Error deleting archive (a.log): Operation not permitted",
                          "DDLogFileInfo: Error renaming file (a.log): File exists"));
  EXPECT_EQ(info->filePath(), folder / "b.log");
  EXPECT_EQ(info->fileAttributes()->sizeBytes, 5u);
  EXPECT_EQ(readFile(folder / "b.log"), "stays");
}

TEST_F(DDLogFileInfoTest, HasANameWhateverThePath) {
  const std::pair<const char*, const char*> cases[] = {
      {"/a/b.log", "b.log"}, {"b.log", "b.log"}, {"/a/b/", "b"}, {"/", "/"}, {"", ""}};
  for (const auto& [given, name] : cases) EXPECT_EQ(infoOf(given)->fileName(), name) << given;
  const auto bare = infoOf("no such file.log");
  bare->renameFile("other.log");
  EXPECT_EQ(bare->filePath(), "other.log");
}

TEST_F(DDLogFileInfoTest, IsEqualToRecordsOfTheSamePath) {
  EXPECT_TRUE(infoOf("/a/b.log")->isEqual(DDLogFileInfo::logFileWithPath("/a/b.log").get()));
  EXPECT_FALSE(infoOf("/a/b.log")->isEqual(infoOf("/a//b.log").get()));
  EXPECT_FALSE(infoOf("/a/b.log")->isEqual(nullptr));
}

TEST_F(DDLogFileInfoTest, SortsTheNewestFirstWithOneLookAtEachFile) {
  std::vector<std::shared_ptr<DDLogFileInfo>> infos = {
      datedInfo("/old", 1, 8), datedInfo("/gone", std::nullopt, std::nullopt),
      datedInfo("/new", 3, 4), datedInfo("/middle", 2, 6)};
  const auto names = [&] {
    std::vector<std::string> list;
    for (const auto& info : infos) list.push_back(info->fileName());
    return list;
  };
  infos[1]->creationDate();  // found missing, and so asked again each time
  std::erase_if(infos, [](const auto& info) { return info->fileName() == "gone"; });
  files->attributeReads = 0;
  std::sort(infos.begin(), infos.end(), [](const auto& one, const auto& other) {
    return one->reverseCompareByCreationDate(*other) < 0;
  });
  EXPECT_THAT(names(), ElementsAre("new", "middle", "old"));
  EXPECT_EQ(files->attributeReads, 3);
  infos.insert(infos.begin(), infoOf("/gone"));
  std::sort(infos.begin(), infos.end(), [](const auto& one, const auto& other) {
    return one->reverseCompareByModificationDate(*other) < 0;
  });
  EXPECT_THAT(names(), ElementsAre("old", "middle", "new", "gone"));
  EXPECT_EQ(infos[0]->reverseCompareByCreationDate(*infos[0]), 0);
  EXPECT_EQ(infos[0]->reverseCompareByCreationDate(*infos[2]), 1);
  EXPECT_EQ(infos[3]->reverseCompareByCreationDate(*infos[0]), 1);
}

TEST_F(DDLogFileInfoTest, DescribesItself) {
  files->scripted["/x/my \"log\".txt"] = {.type = FileAttributes::Type::kRegular,
                                          .sizeBytes = 120,
                                          .creationDate = Date::fromUnixSeconds(1720000000),
                                          .modificationDate = Date::fromUnixSeconds(1720000060),
                                          .permissions = 0644,
                                          .owner = 7,
                                          .inode = 99,
                                          .links = 1};
  clock->present = Date::fromUnixSeconds(1720000010.5);
  EXPECT_EQ(infoOf("/x/my \"log\".txt")->description(),
            R"({
    age = "10.5";
    creationDate = "2024-07-03 09:46:40 +0000";
    fileAttributes = {
        creationDate = "2024-07-03 09:46:40 +0000";
        inode = 99;
        links = 1;
        modificationDate = "2024-07-03 09:47:40 +0000";
        owner = 7;
        permissions = 0644;
        sizeBytes = 120;
        type = regular;
    };
    fileName = "my \"log\".txt";
    filePath = "/x/my \"log\".txt";
    fileSize = 120;
    isArchived = 0;
    modificationDate = "2024-07-03 09:47:40 +0000";
})");
  EXPECT_EQ(infoOf("")->description(), R"({
    age = 0;
    creationDate = "";
    fileAttributes = "";
    fileName = "";
    filePath = "";
    fileSize = 0;
    isArchived = 0;
    modificationDate = "";
})");
}

}  // namespace
}  // namespace kv::test
