#include <gmock/gmock.h>

#include <filesystem>
#include <optional>

#include "tests/support/ScopedEnvironment.h"
#include "tests/support/TemporaryFolder.h"
#include "tools/kvbackup/BackupSet.h"
#include "tools/kvbackup/CopyJob.h"
#include "tools/kvbackup/CopyPlan.h"
#include "tools/kvbackup/ExitStatus.h"
#include "tools/kvbackup/History.h"
#include "tools/kvbackup/ProgressBar.h"
#include "tools/kvbackup/Text.h"

namespace kv::test {
namespace {

namespace fs = std::filesystem;

TEST(CopyProgress, IsReadFromTheLinesThatRsyncWrites) {
  const auto progress =
      CopyProgress::parse("     3000689  60%  217.73MB/s    0:00:00 (xfr#199, to-chk=4/204)");
  ASSERT_TRUE(progress.has_value());
  EXPECT_EQ(progress->bytes, 3000689u);
  EXPECT_EQ(progress->percent, 60);
  EXPECT_EQ(progress->speed, "217.73MB/s");
  EXPECT_EQ(CopyProgress::parse("1 101% 1kB/s 0:00:00").value().percent, 100);
  for (const char* line : {"", "sending incremental file list", "1 % x y", "12x 3% x y",
                           "-1 3% x y", "rsync: 100% wrong here"}) {
    EXPECT_FALSE(CopyProgress::parse(line).has_value()) << line;
  }
}

TEST(ProgressBar, FitsEveryTerminal) {
  const CopyProgress progress{.bytes = 1234567890, .percent = 50, .speed = "110.56MB/s"};
  EXPECT_EQ(ProgressBar::line("Docs", progress, 54),
            "Docs [#########---------]  50%     1.2 GB   110.56MB/s");
  for (const char* name : {"Docs", "Büro", "A name that is far longer than any bar can bear"}) {
    for (std::size_t width = 0; width < 200; ++width) {
      EXPECT_LE(characterCount(ProgressBar::line(name, progress, width)), width);
    }
  }
  EXPECT_THAT(ProgressBar::line("a\x1b[2Jb", progress, 80), testing::StartsWith("a?[2Jb ["));
}

TEST(Text, ShowsSizesInThreeFigures) {
  EXPECT_EQ(sizeText(999), "999 bytes");
  EXPECT_EQ(sizeText(1000), "1.0 kB");
  EXPECT_EQ(sizeText(999'949), "999.9 kB");
  EXPECT_EQ(sizeText(999'950), "1.0 MB");
  EXPECT_EQ(sizeText(~std::uint64_t{0}), "18.4 EB");
}

TEST(BackupSet, RefusesNamesThatLeaveTheDestinationOrATerminalInDisorder) {
  for (const std::string name : {"Docs", "-x", "a:b", "...", " ", "Büro", "2024"}) {
    EXPECT_NO_THROW(BackupSet::checkName(name)) << name;
  }
  EXPECT_NO_THROW(BackupSet::checkName(std::string(200, 'a')));
  for (const std::string name : {"", ".", "..", "a/b", "/", "a\nb", "a\x7f", "\xc2\x9b", "\xff"}) {
    EXPECT_THROW(BackupSet::checkName(name), Refusal) << name;
  }
  EXPECT_THROW(BackupSet::checkName(std::string(201, 'a')), Refusal);
  EXPECT_THROW(BackupSet::checkName(std::string("a\0b", 3)), Refusal);
}

/// The status with which a plan for these paths below a temporary folder is refused.
struct PlanCase {
  const char* why;
  std::vector<std::string> sources;
  const char* destination;
  std::optional<ExitStatus> status;
};

TEST(CopyPlan, KeepsSourcesAndDestinationApart) {
  const PlanCase cases[] = {
      {"side by side", {"docs", "docs2", "deep/docs"}, "disk", {}},
      {"destination gone", {"docs"}, "gone", ExitStatus::kDestinationMissing},
      {"destination a file", {"docs"}, "file", ExitStatus::kDestinationMissing},
      {"source gone", {"docs", "gone"}, "disk", ExitStatus::kSourceMissing},
      {"source a file", {"file"}, "disk", ExitStatus::kSourceMissing},
      {"the same folder", {"docs"}, "docs", ExitStatus::kDestinationOverlaps},
      {"destination inside a source", {"deep"}, "deep/docs", ExitStatus::kDestinationOverlaps},
      {"source inside the destination", {"deep/docs"}, "deep", ExitStatus::kDestinationOverlaps},
      {"seen through a link", {"deep"}, "link", ExitStatus::kDestinationOverlaps},
      {"source twice", {"docs", "docs/"}, "disk", ExitStatus::kDestinationOverlaps},
      {"source inside a source", {"deep", "deep/docs"}, "disk", ExitStatus::kDestinationOverlaps},
  };
  for (const PlanCase& test : cases) {
    TemporaryFolder folder;
    for (const char* name : {"docs", "docs2", "deep/docs", "disk"}) {
      fs::create_directories(folder / name);
    }
    writeFile(folder / "file", "");
    fs::create_directory_symlink(folder / "deep/docs", folder / "link");
    std::vector<std::string> sources;
    for (const std::string& source : test.sources) sources.push_back(folder / source);
    std::optional<ExitStatus> status;
    try {
      const CopyPlan plan = CopyPlan::make("Docs", sources, folder / test.destination);
      ASSERT_EQ(plan.steps.size(), 3u);
      EXPECT_EQ(plan.steps[0].target, (folder / "disk/Docs") + sources[0]);  // not the only "docs"
      EXPECT_EQ(plan.steps[1].target, folder / "disk/Docs/docs2");
      EXPECT_EQ(plan.steps[2].target, (folder / "disk/Docs") + sources[2]);
      for (const auto& step : plan.steps) EXPECT_TRUE(fs::is_directory(step.target));
    } catch (const Refusal& refusal) {
      status = refusal.status();
    }
    EXPECT_EQ(status, test.status) << test.why;
  }
}

TEST(CopyPlan, NeverMirrorsThroughALink) {
  TemporaryFolder folder;
  for (const char* name : {"docs", "disk", "precious"}) fs::create_directories(folder / name);
  fs::create_directory_symlink(folder / "precious", folder / "disk/Docs");
  EXPECT_THROW(CopyPlan::make("Docs", {folder / "docs"}, folder / "disk"), Refusal);
  // The destination itself may be a link: the user named it.
  fs::create_directory_symlink(folder / "disk", folder / "link");
  EXPECT_EQ(CopyPlan::make("Other", {folder / "docs"}, folder / "link").folder,
            folder / "disk/Other");
}

TEST(CopyPlan, MakesPathsAbsoluteAsTheFileSystemSeesThem) {
  TemporaryFolder folder;
  fs::create_directories(folder / "real/inner");
  fs::create_directory_symlink(folder / "real/inner", folder / "link");
  EXPECT_EQ(CopyPlan::absolutePath(folder / "link/.."), folder / "real");
  EXPECT_EQ(CopyPlan::absolutePath(folder / "link//./"), folder / "link");
  EXPECT_EQ(CopyPlan::absolutePath("x"), (fs::current_path() / "x").string());
  EXPECT_EQ(CopyPlan::absolutePath("/"), "/");
  for (const char* path : {"", "/a\nb", "/\xff"}) {
    EXPECT_THROW(CopyPlan::absolutePath(path), Refusal);
  }
}

TEST(History, GoesOnAfterATornLine) {
  TemporaryFolder folder;
  const History history(folder / "history.jsonl");
  EXPECT_TRUE(history.append({.set = "Docs", .end = Date::fromUnixSeconds(60)}));
  writeFile(folder / "history.jsonl", readFile(folder / "history.jsonl") + "{\"set\":\"Ph");
  EXPECT_TRUE(history.append({.set = "Mail",
                              .end = Date::fromUnixSeconds(61),
                              .result = RunReport::Result::kInterrupted,
                              .message = "a\nb \xff"}));
  const auto runs = history.lastRuns();
  ASSERT_EQ(runs.size(), 2u);
  EXPECT_EQ(runs.at("Docs").result, "failed");
  EXPECT_EQ(runs.at("Docs").end, Date::fromUnixSeconds(60));
  EXPECT_EQ(runs.at("Mail").result, "interrupted");
  EXPECT_FALSE(History(folder / "missing/history.jsonl").append({}));
}

TEST(CopyJob, FindsRsyncInAbsoluteFoldersOnly) {
  TemporaryFolder folder;
  writeFile(folder / "first/rsync", "no program");
  writeFile(folder / "second/rsync", "#!/bin/sh\n");
  fs::permissions(folder / "second/rsync", fs::perms::owner_all);
  fs::create_directories(folder / "third/rsync");
  const std::string absolute =
      (folder / "third") + ":" + (folder / "first") + ":" + (folder / "second");
  const ScopedEnvironment path("PATH", ("::.:bin:" + absolute).c_str());
  EXPECT_EQ(CopyJob::findRsync(), folder / "second/rsync");
  const auto oldFolder = fs::current_path();
  fs::current_path(folder / "second");
  const ScopedEnvironment relative("PATH", ":.:../second");
  EXPECT_EQ(CopyJob::findRsync(), std::nullopt);
  fs::current_path(oldFolder);
}

}  // namespace
}  // namespace kv::test
