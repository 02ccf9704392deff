#include "tools/kvctl/ForecastJson.h"

#include <fmt/format.h>

#include "tools/kvbackup/BackupSet.h"
#include "tools/kvbackup/LocalCalendar.h"
#include "tools/kvctl/ForecastTexts.h"
#include "tools/kvctl/Sets.h"

namespace kv::kvctl {
namespace {

const char* nameOf(SkipReason reason) {
  switch (reason) {
    case SkipReason::kNoDestination:
      return "no-destination";
    case SkipReason::kNoVolume:
      return "no-volume";
    case SkipReason::kBusy:
      return "other-backups";
    case SkipReason::kPaused:
      return "paused";
    case SkipReason::kStoredDay:
      return "stored-day";
    case SkipReason::kAsleep:
      return "asleep";
  }
  return "";
}

std::string line(const Json& value) {
  return value.dump(-1, ' ', false, Json::error_handler_t::replace);
}

}  // namespace

/// As it stands in the document: programs compare it.
Json ForecastJson::setJson(std::size_t index) const {
  return BackupSet(subject_.sets[index]).name().value_or("");
}

Json ForecastJson::namesJson(const std::vector<std::size_t>& sets) const {
  Json names = Json::array();
  for (const std::size_t index : sets) names.push_back(setJson(index));
  return names;
}

void ForecastJson::begin() {
  const ForecastPlan& plan = subject_.plan;
  subject_.write(fmt::format("{{\n\"from\": {},\n\"until\": {},\n\"supposed\": {},\n\"events\": [",
                             instantJson(plan.begin).dump(), instantJson(plan.end()).dump(),
                             line(assumptionText(plan))));
}

void ForecastJson::add(std::size_t index, const Json& event) {
  if (!subject_.isShown[index]) return;
  subject_.write((hasEvents_ ? ",\n" : "\n") + line(event));
  hasEvents_ = true;
}

void ForecastJson::runs(const ForecastRun& run) {
  add(run.index, {{"event", "run"},
                  {"set", setJson(run.index)},
                  {"index", run.index},
                  {"start", instantJson(run.startedAt)},
                  {"end", run.isOver ? instantJson(run.endedAt) : Json(nullptr)},
                  {"due", instantJson(run.due)},
                  {"rule", ruleText(subject_.sets[run.index])},
                  {"late", run.isLate()},
                  {"waitedBehind", run.isLate() ? namesJson(run.behind) : Json::array()},
                  {"heldUpBy", run.heldUpBy ? setJson(*run.heldUpBy) : Json(nullptr)},
                  {"missedDestination", run.missedVolume},
                  {"sleptUntil", instantJson(run.sleptUntil)},
                  {"pausedUntil", instantJson(run.pausedUntil)}});
}

void ForecastJson::skips(const ForecastSkip& skip) {
  add(skip.index, {{"event", "skip"},
                   {"set", setJson(skip.index)},
                   {"index", skip.index},
                   {"due", instantJson(skip.due)},
                   {"day", localStamp(skip.due).substr(0, sizeof("2026-11-21") - 1)},
                   {"reason", nameOf(skip.reason)},
                   {"text", skipText(skip, subject_.names)}});
}

void ForecastJson::end(const std::vector<ForecastSet>& sets) {
  std::string text = "\n],\n\"sets\": [";
  const char* separator = "\n";
  for (std::size_t index = 0; index < sets.size(); ++index) {
    if (!subject_.isShown[index]) continue;
    const ForecastSet& set = sets[index];
    const Json object = {{"set", setJson(index)},
                         {"index", index},
                         {"rule", ruleText(subject_.sets[index])},
                         {"runs", set.runs},
                         {"skips", set.skips},
                         {"waitsSince", instantJson(set.waitsSince)},
                         {"whyNever", set.runs == 0 ? Json(set.whyNever) : Json(nullptr)}};
    text += separator + line(object);
    separator = ",\n";
  }
  subject_.write(text + "\n]\n}\n");
}

}  // namespace kv::kvctl
