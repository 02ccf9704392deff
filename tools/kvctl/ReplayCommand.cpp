#include "tools/kvctl/ReplayCommand.h"

#include <fmt/format.h>

#include <algorithm>
#include <memory>
#include <string>
#include <vector>

#include "tools/kvbackup/LocalCalendar.h"
#include "tools/kvctl/ExitStatus.h"
#include "tools/kvctl/FaultReport.h"
#include "tools/kvctl/FaultReportReplay.h"
#include "tools/kvctl/Sets.h"

namespace kv::kvctl {
namespace {

using Lines = std::vector<std::string>;

/// What two lists do not share: all between their common beginning and their common end.
struct Difference {
  std::size_t begin = 0;
  Lines recorded;
  Lines made;
};

Difference differenceOf(const Lines& recorded, const Lines& made) {
  const auto [recordedBegin, madeBegin] =
      std::mismatch(recorded.begin(), recorded.end(), made.begin(), made.end());
  const auto [recordedEnd, madeEnd] =
      std::mismatch(recorded.rbegin(), std::make_reverse_iterator(recordedBegin), made.rbegin(),
                    std::make_reverse_iterator(madeBegin));
  return {static_cast<std::size_t>(recordedBegin - recorded.begin()),
          Lines(recordedBegin, recordedEnd.base()), Lines(madeBegin, madeEnd.base())};
}

bool isNone(const Difference& difference) {
  return difference.recorded.empty() && difference.made.empty();
}

Json jsonOf(const Difference& difference) {
  return {
      {"from", difference.begin + 1}, {"recorded", difference.recorded}, {"now", difference.made}};
}

std::string textOf(const char* title, const Difference& difference, const Style& style) {
  if (isNone(difference)) return "";
  std::string text = fmt::format("{}, from number {} on", title, difference.begin + 1);
  text = style.paint(text, Tone::kHeading) + "\n";
  for (const std::string& line : difference.recorded) {
    text += style.paint("  - " + shown(line), Tone::kBad) + "\n";
  }
  for (const std::string& line : difference.made) {
    text += style.paint("  + " + shown(line), Tone::kGood) + "\n";
  }
  return text;
}

Lines judgementTexts(const std::vector<Judgement>& judgements, const TaskList& list) {
  Lines texts;
  for (const Judgement& judgement : judgements) texts.push_back(judgementText(judgement, list));
  return texts;
}

Lines schedulerLines(const FaultReport& report) {
  Lines lines;
  for (const FaultReport::Line& line : report.trace) {
    if (!line.isHosts) lines.push_back(line.text);
  }
  return lines;
}

FaultReport reportIn(const std::string& path, const Context& context) {
  const auto text = context.files->read(path, FaultReport::kMostBytes);
  if (!text) {
    throw Refusal(
        ExitStatus::kUnreadable,
        fmt::format("{}: cannot be read as a report: it is missing, no plain file, larger "
                    "than 64 MB, or not yours to read",
                    path));
  }
  try {
    return FaultReport::parse(*text);
  } catch (const Refusal& refusal) {
    throw Refusal(refusal.status(), fmt::format("{}: {}", path, refusal.what()));
  }
}

/// What replaying has shown.
struct Comparison {
  Difference judgements;
  Difference trace;
  Lines oddQuestions;
  bool isSame() const { return isNone(judgements) && isNone(trace) && oddQuestions.empty(); }
};

void printAsJson(const FaultReport& report, const Comparison& comparison) {
  printJson({{"same", comparison.isSame()},
             {"at", instantJson(report.at)},
             {"program", report.program},
             {"decisions", jsonOf(comparison.judgements)},
             {"questions", comparison.oddQuestions},
             {"trace", jsonOf(comparison.trace)}});
}

std::string textOf(const FaultReport& report, const Comparison& comparison, const Style& style) {
  const std::string origin =
      fmt::format("recorded by {} for {}", shown(report.program), utcStamp(report.at));
  if (comparison.isSame()) {
    return style.paint("The same decisions", Tone::kGood) +
           fmt::format(": {} sets, {} decisions, {} lines of trace ({}).\n", report.list().size(),
                       report.judgements.size(), report.trace.size(), origin);
  }
  std::string text = style.paint("Not the same", Tone::kBad) +
                     fmt::format(" ({}; - recorded, + made now).\n", origin) +
                     textOf("Decisions", comparison.judgements, style);
  for (const std::string& question : comparison.oddQuestions) {
    text += "Host " + shown(question) + "\n";
  }
  return text + textOf("Lines of the trace", comparison.trace, style);
}

int replayFile(const std::string& path, const Context& context) {
  const FaultReport report = reportIn(path, context);
  const ReplayResult made = replay(report);
  const TaskList list = report.list();
  const Comparison comparison = {
      differenceOf(judgementTexts(report.judgements, list), judgementTexts(made.judgements, list)),
      differenceOf(schedulerLines(report), made.trace), made.oddQuestions};
  if (context.asJson) {
    printAsJson(report, comparison);
  } else {
    print(textOf(report, comparison, context.style));
  }
  return static_cast<int>(comparison.isSame() ? ExitStatus::kDone : ExitStatus::kProblems);
}

}  // namespace

void addReplayCommand(CLI::App& app, Selection& selection) {
  const auto path = std::make_shared<std::string>();
  CLI::App* const command = app.add_subcommand(
      "replay", "Decides again what a report of \"kvctl record\" recorded, and compares");
  command->add_option("FILE", *path, "The report")->required();
  command->callback([path, &selection] {
    selection.run = [path](const Context& context) { return replayFile(*path, context); };
  });
}

}  // namespace kv::kvctl
