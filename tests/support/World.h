#pragma once

#include <memory>
#include <sstream>
#include <string>
#include <vector>

#include "platform/PropertyListWriter.h"
#include "platform/linux/PosixFiles.h"
#include "scheduler/KVTimer.h"
#include "scheduler/ScheduleDocuments.h"
#include "tests/support/Fakes.h"
#include "tests/support/ScopedEnvironment.h"
#include "tests/support/Task.h"
#include "tests/support/TemporaryFolder.h"

namespace kv::test {

/// Everything that a scheduler needs, made of fakes and a temporary home.
struct World {
  explicit World(const char* localeName = "en_US.UTF-8")
      : locale(DateLocale::fromName(localeName)) {}
  ~World() { runLoop->invalidateAll(); }  // a running timer holds the scheduler
  World(const World&) = delete;
  World& operator=(const World&) = delete;

  KVTimer::Environment environment() {
    return {.host = [this]() -> std::shared_ptr<Host> { return ++hostsFetched, host; },
            .clock = clock,
            .runLoop = runLoop,
            .files = files,
            .locale = locale,
            .homeFolder = home.path().string(),
            .traceFile = traceFile};
  }

  /// Makes the scheduler; tracing is on from the next tick on when `traced`.
  KVTimer& start(bool traced = true) {
    timer = KVTimer::create(environment());
    if (traced) timer->dbugMenu = std::make_shared<FakeMenuItem>(1);
    return *timer;
  }

  void setFirst(const PropertyList& root,
                PropertyListEncoding encoding = PropertyListEncoding::kXml) {
    writeFile(home / ScheduleDocuments::kFirst, writePropertyList(root, encoding));
  }
  void setSecond(const PropertyList& root,
                 PropertyListEncoding encoding = PropertyListEncoding::kBinary) {
    writeFile(home / ScheduleDocuments::kSecond, writePropertyList(root, encoding));
  }

  /// The trace without the time of day and the tag.
  std::vector<std::string> trace() const {
    constexpr std::size_t kStampAndTag = sizeof("09:05:07 [Timer] ") - 1;
    std::vector<std::string> lines;
    std::istringstream text(readFile(traceFile));
    for (std::string line; std::getline(text, line);) {
      lines.push_back(line.size() < kStampAndTag ? line : line.substr(kStampAndTag));
    }
    return lines;
  }

  /// One tick at a local time, and what it wrote.
  std::vector<std::string> tickAt(const std::string& localTime) {
    clock->present = localDate(localTime);
    const auto before = trace().size();
    timer->ScheduleTimer();
    auto lines = trace();
    lines.erase(lines.begin(), lines.begin() + static_cast<std::ptrdiff_t>(before));
    return lines;
  }

  ScopedEnvironment zone{"TZ", kBerlin};
  TemporaryFolder home;
  DateLocale locale;
  std::string traceFile = home / "trace.txt";
  std::shared_ptr<FakeClock> clock = std::make_shared<FakeClock>();
  std::shared_ptr<FakeRunLoop> runLoop = std::make_shared<FakeRunLoop>();
  std::shared_ptr<RecordingHost> host = std::make_shared<RecordingHost>();
  std::shared_ptr<Files> files = std::make_shared<PosixFiles>();
  int hostsFetched = 0;
  std::shared_ptr<KVTimer> timer;
};

}  // namespace kv::test
