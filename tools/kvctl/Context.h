#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "platform/Clock.h"
#include "platform/DateFormatter.h"
#include "platform/Files.h"
#include "tools/kvctl/Output.h"

namespace kv::kvctl {

/// What every command works with, made of the options that all of them share and of the
/// environment.
///
/// Threads    main thread only.
struct Context {
  /// Stands still at the time of --at; else the system's.
  std::shared_ptr<const Clock> clock;
  std::shared_ptr<Files> files;
  DateLocale locale;
  std::string homeFolder;
  std::string stateFolder;
  std::string settingsFolder;
  std::string historyFile;
  std::string programFolder;
  /// The folder with the host's scripts.
  std::string bundle;
  bool isInstalledBundle = true;
  std::string traceFile = "/tmp/KVScheduler.txt";
  /// False with --at: what a running agent says is of no use then.
  bool isAboutNow = true;
  /// False with --home: a running agent serves another one.
  bool isOwnHome = true;
  bool asJson = false;
  Style style;
};

/// The command that the parser has chosen.
struct Selection {
  /// Yields the exit status. Throws Refusal.
  std::function<int(const Context&)> run;
};

/// A clock that stands still.
class StandingClock final : public Clock {
 public:
  explicit StandingClock(Date date) : date_(date) {}
  Date now() const override { return date_; }

 private:
  const Date date_;
};

/// Settles the zone for the rest of the process: without a TZ the C library looks at the file of
/// the system's zone for each date anew, which is most of what a command costs that handles many.
void settleZone();

/// Reads a time as people write it, in the local zone: "2026-11-21 09:30", with seconds, with "T",
/// "2026-11-21" (its midnight), "09:30" (today, as seen from `now`); and instants with "Z". A local
/// time that the clocks skip or that does not exist is nothing.
std::optional<Date> parseTime(std::string_view text, Date now);

}  // namespace kv::kvctl
