#include "tools/kvctl/ForecastListing.h"

#include <fmt/format.h>

#include <algorithm>
#include <utility>

#include "tools/kvbackup/LocalCalendar.h"
#include "tools/kvbackup/Text.h"
#include "tools/kvctl/ForecastTexts.h"
#include "tools/kvctl/Sets.h"

namespace kv::kvctl {

ForecastListing::ForecastListing(const ForecastSubject& subject) : subject_(subject) {
  for (std::size_t index = 0; index < subject.names.size(); ++index) {
    if (!subject.isShown[index]) continue;
    nameWidth_ = std::max(nameWidth_, characterCount(subject.names[index]));
  }
}

void ForecastListing::begin() {
  const ForecastPlan& plan = subject_.plan;
  const std::string heading = fmt::format("Forecast from {} to {}, if nothing else changes",
                                          dayStamp(plan.begin), dayStamp(plan.end()));
  subject_.write(subject_.style.paint(heading, Tone::kHeading) + "\n" +
                 wrapped(assumptionText(plan), 0, subject_.style.width));
}

std::string ForecastListing::padded(std::size_t index) const {
  const std::string& name = subject_.names[index];
  return name + std::string(nameWidth_ - characterCount(name), ' ');
}

void ForecastListing::add(const Line& line) {
  if (!subject_.isShown[line.index]) return;
  std::string day = dayStamp(line.date).substr(0, sizeof("Sat 2026-11-21") - 1);
  std::string text;
  if (day != day_) {
    text = "\n" + subject_.style.paint(day, Tone::kHeading) + "\n";
    day_ = std::move(day);
  }
  text += fmt::format("  {:5}  {}  {}  {}\n", line.when, padded(line.index),
                      subject_.style.paint(fmt::format("{:>8}", line.what), line.tone), line.why);
  subject_.write(text);
}

/// What is due at the beginning may have been so for long.
std::string ForecastListing::sinceText(const ForecastRun& run) const {
  if (run.due <= subject_.plan.begin) return "at the beginning";
  const bool isOtherDay = localDayOfMonth(run.due) != localDayOfMonth(run.startedAt);
  return "since " + (isOtherDay ? dayStamp(run.due) : clockText(run.due));
}

void ForecastListing::runs(const ForecastRun& run) {
  std::string why = ruleText(subject_.sets[run.index]);
  if (run.isLate()) {
    const std::string delay = delayText(run, subject_.names);
    why += fmt::format("; due {}{}", sinceText(run), delay.empty() ? "" : ": " + delay);
  }
  if (!run.isOver) why += "; still running at the end";
  add({.date = run.startedAt,
       .when = clockText(run.startedAt),
       .index = run.index,
       .what = spanText(run.endedAt - run.startedAt),
       .tone = run.isLate() ? Tone::kWarning : Tone::kGood,
       .why = why});
}

void ForecastListing::skips(const ForecastSkip& skip) {
  add({.date = skip.due,
       .when = "--:--",
       .index = skip.index,
       .what = "skipped",
       .tone = Tone::kBad,
       .why = fmt::format("{}: {}", ruleText(subject_.sets[skip.index]),
                          skipText(skip, subject_.names))});
}

void ForecastListing::end(const std::vector<ForecastSet>& sets) {
  std::uint64_t runs = 0;
  std::uint64_t skips = 0;
  std::string never;
  std::string waiting;
  for (std::size_t index = 0; index < sets.size(); ++index) {
    if (!subject_.isShown[index]) continue;
    const ForecastSet& set = sets[index];
    runs += set.runs;
    skips += set.skips;
    if (set.runs == 0) never += fmt::format("  {}  {}\n", padded(index), set.whyNever);
    if (set.runs > 0 && set.waitsSince) {
      waiting += fmt::format("  {}  due since {}\n", padded(index), dayStamp(*set.waitsSince));
    }
  }
  std::string text;
  const auto section = [&](const char* heading, const std::string& lines) {
    if (lines.empty()) return;
    text += "\n" + subject_.style.paint(heading, Tone::kHeading) + "\n" + lines;
  };
  section("Not started at all", never);
  section("Waiting at the end", waiting);
  // Of days only: one run of an interval set stands for all the due times that have passed.
  text += fmt::format("\n{} {}, {} {} skipped\n", runs, runs == 1 ? "backup" : "backups", skips,
                      skips == 1 ? "day" : "days");
  subject_.write(text);
}

}  // namespace kv::kvctl
