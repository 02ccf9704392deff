#include "scheduler/LaunchSequence.h"

#include <gmock/gmock.h>

#include <string>
#include <vector>

#include "tests/support/Fakes.h"
#include "tests/support/RecordingTrace.h"
#include "tests/support/Task.h"

namespace kv::test {
namespace {

using Lines = std::vector<std::string>;
using testing::ElementsAre;
using testing::ElementsAreArray;

struct Decision {
  LaunchVerdict verdict;
  Lines lines;
};

Decision decide(CallSite site, RecordingHost* host, bool launchedAlready = false) {
  const PropertyList entry = Task("Docs");
  RecordingTrace trace;
  const auto verdict = decideLaunch(site, TaskRecord(entry), launchedAlready, host, trace);
  return {verdict, trace.lines};
}

struct SiteCase {
  CallSite site;
  Lines missing;
  Lines running;
  Lines open;
  Lines closed;
};

const std::string kRunning = "Skip backup > one is currently running: Docs";

const SiteCase kSites[] = {
    {CallSite::kWeeklyOnceADay,
     {"No volume present for backup set: Docs"},
     {kRunning},
     {"launch via script = backup is open ..."},
     {"launch Kelvara+ - backup is NOT running ..."}},
    {CallSite::kWeeklyNormal,
     {"No volume present for backup set: Docs"},
     {kRunning},
     {"launch via script - backup is  running ..."},
     {"launch Kelvara+ app - backup is not running ..."}},
    {CallSite::kDailyOnceADay,
     {"No volume present for backup set Docs"},
     {"is volume", kRunning},
     {"is volume", ">>Launching set now = Docs", "launch via script - Kelvara+ is open ..."},
     {"is volume", ">>Launching set now = Docs",
      "launch Kelvara+ app -  Kelvara+ is not open ..."}},
    {CallSite::kDailyNormal,
     {"post checkIfDiskExists  ", "No volume present for backup set Docs"},
     {"post checkIfDiskExists  ", "post checkIfDiskExists  ", "It is a volume", kRunning},
     {"post checkIfDiskExists  ", "post checkIfDiskExists  ", "It is a volume",
      "launch via script - Kelvara+ is open ..."},
     {"post checkIfDiskExists  ", "post checkIfDiskExists  ", "It is a volume",
      "launch via proc -  Kelvara+ is not open ..."}},
    {CallSite::kInterval,
     {"No volume present for backup set Docs"},
     {kRunning},
     {"launch via script - Kelvara+ app IS open..."},
     {"launch Kelvara+ app - backup is NOT open..."}},
};

TEST(LaunchSequence, AsksInOrderAndSaysWhyAtEachSite) {
  for (const auto& site : kSites) {
    SCOPED_TRACE(static_cast<int>(site.site));
    RecordingHost absent;
    absent.missing = {"/disk/Docs"};
    auto decision = decide(site.site, &absent);
    EXPECT_EQ(decision.verdict, LaunchVerdict::kNoVolume);
    EXPECT_THAT(decision.lines, ElementsAreArray(site.missing));
    EXPECT_THAT(absent.calls, ElementsAre("disk /disk/Docs 1"));

    RecordingHost busy;
    busy.running = PropertyList("2 jobs");  // any object: its integer value counts
    decision = decide(site.site, &busy);
    EXPECT_EQ(decision.verdict, LaunchVerdict::kBackupRunning);
    EXPECT_THAT(decision.lines, ElementsAreArray(site.running));
    EXPECT_THAT(busy.calls, ElementsAre("disk /disk/Docs 1", "running?"));

    RecordingHost open;
    open.open = PropertyList(true);
    decision = decide(site.site, &open);
    EXPECT_EQ(decision.verdict, LaunchVerdict::kAskOpenApplication);
    EXPECT_THAT(decision.lines, ElementsAreArray(site.open));
    EXPECT_THAT(open.calls, ElementsAre("disk /disk/Docs 1", "running?", "open?"));

    RecordingHost silent;  // answers no object at all
    silent.running = std::nullopt;
    silent.open = std::nullopt;
    decision = decide(site.site, &silent);
    EXPECT_EQ(decision.verdict, LaunchVerdict::kLaunchApplication);
    EXPECT_THAT(decision.lines, ElementsAreArray(site.closed));
  }
}

TEST(LaunchSequence, StopsAfterALaunchAtTheMainPassSitesOnly) {
  for (const auto& site : kSites) {
    RecordingHost host;
    const bool interval = site.site == CallSite::kInterval;
    EXPECT_EQ(decide(site.site, &host, true).verdict,
              interval ? LaunchVerdict::kLaunchApplication : LaunchVerdict::kAlreadyLaunched);
  }
}

TEST(LaunchSequence, FindsNoVolumeWithoutAHost) {
  EXPECT_EQ(decide(CallSite::kDailyNormal, nullptr).verdict, LaunchVerdict::kNoVolume);
}

}  // namespace
}  // namespace kv::test
