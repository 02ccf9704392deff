#include "tools/kvctl/CheckSubject.h"

#include <fmt/format.h>

#include <algorithm>
#include <filesystem>
#include <system_error>
#include <utility>

#include "scheduler/FieldReaders.h"
#include "scheduler/TaskRecord.h"
#include "tools/kvbackup/BackupSet.h"
#include "tools/kvbackup/LocalCalendar.h"

namespace kv::kvctl {
namespace {

/// A run is recorded just before it ends; clocks of file systems are coarse.
constexpr Seconds kRecordingMargin{60};

/// A document may be a link; the file that it leads to is the one that is written.
std::optional<Date> writtenAt(Files& files, const std::string& path) {
  std::error_code error;
  const auto real = std::filesystem::canonical(path, error);
  if (error) return std::nullopt;
  const auto attributes = files.attributes(real.string());
  return attributes ? std::optional(attributes->modificationDate) : std::nullopt;
}

}  // namespace

CheckSubject::CheckSubject(const Context& context, const Sets& sets, HostFacts host)
    : context_(context),
      sets_(sets),
      host_(std::move(host)),
      now_(context.clock->now()),
      patterns_(context.locale) {
  for (const SetEntry& set : sets.all()) {
    if (!set.name.empty()) firstOfName_.emplace(set.name, &set);
  }
  if (isRunByKvbackup()) lastRuns_ = History(context.historyFile).lastRuns();
  for (std::size_t document = 0; document < writtenAt_.size(); ++document) {
    writtenAt_[document] = kvctl::writtenAt(*context.files, sets.documents()[document].path);
  }
}

bool CheckSubject::mayStart(const SetEntry& set) const {
  if (set.index < host_.mayStart.size()) return host_.mayStart[set.index];
  return !BackupSet(*set.record).destination().value_or("").empty();
}

const SetEntry* CheckSubject::startedInsteadOf(const SetEntry& set) const {
  const auto found = firstOfName_.find(set.name);
  return found == firstOfName_.end() ? nullptr : found->second;
}

bool CheckSubject::isReachable(const SetEntry& set) const {
  const SetEntry* const first = startedInsteadOf(set);
  return first != nullptr && first->index == set.index;
}

const History::LastRun* CheckSubject::lastRun(const SetEntry& set) const {
  const auto found = lastRuns_.find(set.name);
  return found == lastRuns_.end() || !isReachable(set) ? nullptr : &found->second;
}

bool CheckSubject::hasUnrecordedRun(const SetEntry& set) const {
  const History::LastRun* const run = lastRun(set);
  if (run == nullptr || run->end > now_) return false;
  if (run->message.starts_with(kRunNotRecorded)) return true;
  // Whoever records a run writes the document then. One that was written later may have been
  // edited: it tells nothing.
  const auto& written = writtenAt_[set.document];
  if (run->result != "ok" || !written || !(run->end - *written > kRecordingMargin)) return false;
  const TaskRecord task(*set.record);
  if (task.isInterval()) return task.nextDue() && *task.nextDue() <= run->end;
  return storedDay(task.option("dayOfMonth")) != std::to_string(localDayOfMonth(run->start));
}

std::int64_t CheckSubject::futileStarts(const SetEntry& set) const {
  const auto found = host_.futileStarts.find(set.name);
  return found == host_.futileStarts.end() || !isReachable(set) ? 0 : found->second;
}

Problem CheckSubject::problem(const char* code, Problem::Severity severity) {
  Problem made;
  made.code = code;
  made.severity = severity;
  return made;
}

Problem CheckSubject::problem(const char* code, Problem::Severity severity,
                              const SetEntry& set) const {
  Problem made = problem(code, severity);
  made.set = set;
  made.file = documentOf(set);
  return made;
}

void CheckSubject::setRemedy(Problem& problem, const std::string& change, const char* verb,
                             const std::string& arguments) const {
  const bool hasKelvara = host_.application == "Kelvara+";
  if (hasKelvara || !problem.set) {
    problem.remedy = change + (hasKelvara ? " in Kelvara+." : ".");
    return;
  }
  if (!isReachable(*problem.set) || shown(problem.set->name) != problem.set->name) {
    problem.remedy =
        fmt::format("{} in Kelvara+, or in the document itself: kvbackup cannot, since {}.", change,
                    startedInsteadOf(*problem.set) == nullptr ? "the set has no name"
                    : isReachable(*problem.set)               ? "the name cannot be typed"
                                                : "that name means the first set that bears it");
    return;
  }
  problem.remedy = change + (isRunByKvbackup() ? ":" : " in Kelvara+, or with kvbackup:");
  const std::string& name = problem.set->name;
  const std::string before = arguments.empty() ? "" : " " + arguments;
  // Behind "--" a name may begin with a dash.
  problem.command = name.starts_with('-')
                        ? fmt::format("kvbackup {}{} -- {}", verb, before, shellWord(name))
                        : fmt::format("kvbackup {} {}{}", verb, shellWord(name), before);
}

std::string shellWord(const std::string& text) {
  constexpr std::string_view kPlain = "-_./:,+@%";
  const bool isPlain =
      !text.empty() && std::all_of(text.begin(), text.end(), [kPlain](char character) {
        return (character >= 'a' && character <= 'z') || (character >= 'A' && character <= 'Z') ||
               (character >= '0' && character <= '9') ||
               kPlain.find(character) != std::string_view::npos;
      });
  if (isPlain) return text;
  std::string word = "'";
  for (const char character : text) {
    if (character == '\'') {
      word += "'\\''";
    } else {
      word += character;
    }
  }
  return word + "'";
}

}  // namespace kv::kvctl
