#include <gmock/gmock.h>

#include <filesystem>

#include "tests/support/TemporaryFolder.h"
#include "tools/kvbackup/CopyPlan.h"
#include "tools/kvbackup/ExitStatus.h"
#include "tools/kvbackup/History.h"

namespace kv::test {
namespace {

namespace fs = std::filesystem;

/// What is wrong, the sources, the destination, and the status.
using PlanCase = std::tuple<const char*, std::vector<std::string>, const char*, ExitStatus>;
const PlanCase kPlans[] = {
    {"side by side", {"docs", "docs2", "deep/docs"}, "disk", ExitStatus::kDone},
    {"destination gone", {"docs"}, "gone", ExitStatus::kDestinationMissing},
    {"destination a file", {"docs"}, "file", ExitStatus::kDestinationMissing},
    {"source gone", {"docs", "gone"}, "disk", ExitStatus::kSourceMissing},
    {"destination inside a source", {"deep"}, "deep/docs", ExitStatus::kDestinationOverlaps},
    {"source inside the destination", {"deep/docs"}, "deep", ExitStatus::kDestinationOverlaps},
    {"seen through a link", {"deep"}, "link", ExitStatus::kDestinationOverlaps},
    {"source inside a source", {"deep", "deep/docs"}, "disk", ExitStatus::kDestinationOverlaps},
};

TEST(CopyPlan, KeepsSourcesAndDestinationApart) {
  for (const auto& [why, names, destination, expected] : kPlans) {
    TemporaryFolder folder;
    for (const char* name : {"docs", "docs2", "deep/docs", "disk"}) {
      fs::create_directories(folder / name);
    }
    writeFile(folder / "file", "");
    fs::create_directory_symlink(folder / "deep/docs", folder / "link");
    std::vector<std::string> sources;
    for (const std::string& source : names) sources.push_back(folder / source);
    ExitStatus status = ExitStatus::kDone;
    try {
      const CopyPlan plan = CopyPlan::make("Docs", sources, folder / destination);
      ASSERT_EQ(plan.steps.size(), 3u);
      EXPECT_EQ(plan.steps[0].target, (folder / "disk/Docs") + sources[0]);  // not the only "docs"
      EXPECT_EQ(plan.steps[1].target, folder / "disk/Docs/docs2");
      EXPECT_EQ(plan.steps[2].target, (folder / "disk/Docs") + sources[2]);
    } catch (const Refusal& refusal) {
      status = refusal.status();
    }
    EXPECT_EQ(status, expected) << why;
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

TEST(History, GoesOnAfterATornLine) {
  TemporaryFolder folder;
  const History history(folder / "history.jsonl");
  EXPECT_TRUE(history.append({.set = "Docs", .end = Date::fromUnixSeconds(60)}));
  writeFile(folder / "history.jsonl", readFile(folder / "history.jsonl") + "{\"set\":\"Ph");
  EXPECT_TRUE(history.append(
      {.set = "Mail", .result = RunReport::Result::kInterrupted, .message = "a\nb \xff"}));
  const auto runs = history.lastRuns();
  ASSERT_EQ(runs.size(), 2u);
  EXPECT_EQ(runs.at("Docs").end, Date::fromUnixSeconds(60));
  EXPECT_EQ(runs.at("Mail").result, "interrupted");
}

}  // namespace
}  // namespace kv::test
