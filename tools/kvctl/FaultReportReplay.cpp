#include "tools/kvctl/FaultReportReplay.h"

#include <fmt/format.h>

#include <algorithm>
#include <memory>
#include <stdexcept>
#include <utility>

#include "app/ReadOnlyFiles.h"
#include "app/StandingScheduler.h"
#include "platform/linux/PosixFiles.h"
#include "scheduler/KVTimer.h"
#include "tools/kvctl/Context.h"
#include "tools/kvctl/ExitStatus.h"

namespace kv::kvctl {
namespace {

std::string questionText(const HostAnswer& question) {
  switch (question.question) {
    case HostAnswer::Question::kBackupRunning:
      return "whether a backup is running";
    case HostAnswer::Question::kApplicationOpen:
      return "whether the backup application is open";
    case HostAnswer::Question::kDestinationPresent:
      break;
  }
  return fmt::format("whether \"{}\" is there",
                     question.subject ? question.subject->description() : "(none)");
}

/// By what it holds, so that a NaN in it equals itself.
std::string keyOf(const std::optional<PropertyList>& value) {
  return value ? value->description() : "";
}

/// Answers as the report says, in its order.
class RecordedHost final : public Host {
 public:
  RecordedHost(const std::vector<HostAnswer>& answers, std::vector<std::string>& oddQuestions)
      : answers_(answers), oddQuestions_(oddQuestions) {}

  void reloadMenuNow(const TaskList&) override {}
  std::optional<PropertyList> checkRunningBackupStatus() override {
    return answerTo({.question = HostAnswer::Question::kBackupRunning});
  }
  std::optional<PropertyList> checkBackupStatus() override {
    return answerTo({.question = HostAnswer::Question::kApplicationOpen});
  }
  bool checkIfDiskExists_fromSchedule(const PropertyList* path, int) override {
    const auto answer = answerTo({.question = HostAnswer::Question::kDestinationPresent,
                                  .subject = path ? std::optional(*path) : std::nullopt});
    const auto* const isThere = answer ? answer->as<bool>() : nullptr;
    return isThere != nullptr && *isThere;
  }
  void backupNow(const PropertyList*) override {}
  void backupNowViaScript(const PropertyList*) override {}

  void noteUnasked() {
    for (; next_ < answers_.size(); ++next_) {
      oddQuestions_.push_back("not asked now: " + questionText(answers_[next_]));
    }
  }

 private:
  std::optional<PropertyList> answerTo(const HostAnswer& question) {
    const std::string subject = keyOf(question.subject);
    const auto fits = [&](const HostAnswer& one) {
      return one.question == question.question && keyOf(one.subject) == subject;
    };
    if (next_ < answers_.size() && fits(answers_[next_])) return answers_[next_++].answer;
    oddQuestions_.push_back("asked now only: " + questionText(question));
    return std::nullopt;
  }

  const std::vector<HostAnswer>& answers_;
  std::vector<std::string>& oddQuestions_;
  std::size_t next_ = 0;
};

class Judgements final : public TickObserver {
 public:
  Judgements(const TaskList& list, std::vector<Judgement>& made) : list_(list), made_(made) {}
  void tickBegan(Date, const TaskList&) override {}
  void judged(const PropertyList& entry, Outcome outcome) override {
    made_.push_back({static_cast<std::size_t>(&entry - list_.data()), outcome});
  }
  void tickEnded() override {}

 private:
  const TaskList& list_;
  std::vector<Judgement>& made_;
};

std::vector<std::string> linesOf(std::string_view text) {
  std::vector<std::string> lines;
  while (!text.empty()) {
    const std::size_t end = std::min(text.find('\n'), text.size());
    lines.emplace_back(text.substr(0, end));
    text.remove_prefix(std::min(end + 1, text.size()));
  }
  return lines;
}

void requireKnown(const DateLocale& locale) {
  try {
    const DateFormatter known("d", locale);
  } catch (const std::runtime_error&) {
    throw Refusal(ExitStatus::kUnreadable, "this system does not know the locale of the report");
  }
}

}  // namespace

ReplayResult replay(const FaultReport& report) {
  requireKnown(report.locale);
  const ReportZone::InForce zone(report.zone);
  ReplayResult result;
  const auto list = std::make_shared<const TaskList>(report.list());
  const auto files = std::make_shared<ReadOnlyFiles>(std::make_shared<PosixFiles>());
  const auto host = std::make_shared<RecordedHost>(report.answers, result.oddQuestions);
  const auto timer =
      KVTimer::create({.host = [host] { return host; },
                       .clock = std::make_shared<StandingClock>(report.at),
                       .runLoop = std::make_shared<StandingRunLoop>(),
                       .files = files,
                       .locale = report.locale,
                       .homeFolder = "/",
                       .readList = [list] { return list; },
                       .observer = std::make_shared<Judgements>(*list, result.judgements)});
  timer->dbugMenu = std::make_shared<TracingItem>();
  timer->ScheduleTimer();
  host->noteUnasked();
  result.trace = linesOf(files->written);
  return result;
}

bool markHostLines(std::vector<FaultReport::Line>& trace,
                   const std::vector<std::string>& schedulerLines) {
  auto next = schedulerLines.begin();
  std::vector<bool> isHosts;
  for (const FaultReport::Line& line : trace) {
    const bool isSchedulers = next != schedulerLines.end() && line.text == *next;
    if (isSchedulers) ++next;
    isHosts.push_back(!isSchedulers);
  }
  if (next != schedulerLines.end()) return false;
  for (std::size_t index = 0; index < trace.size(); ++index) trace[index].isHosts = isHosts[index];
  return true;
}

}  // namespace kv::kvctl
