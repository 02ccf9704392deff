#include "tools/kvctl/CheckCommand.h"

#include <fmt/format.h>

#include <algorithm>
#include <iterator>
#include <memory>
#include <optional>
#include <string>
#include <utility>

#include "app/StartupError.h"
#include "tools/kvbackup/LocalCalendar.h"
#include "tools/kvctl/AgentState.h"
#include "tools/kvctl/Check.h"
#include "tools/kvctl/ExitStatus.h"
#include "tools/kvctl/Explanation.h"
#include "tools/kvctl/QtApplication.h"

namespace kv::kvctl {
namespace {

using Severity = Problem::Severity;

const char* wordFor(Severity severity) {
  switch (severity) {
    case Severity::kError:
      return "error";
    case Severity::kWarning:
      return "warning";
    case Severity::kNotice:
      break;
  }
  return "notice";
}

Tone toneOf(Severity severity) {
  switch (severity) {
    case Severity::kError:
      return Tone::kBad;
    case Severity::kWarning:
      return Tone::kWarning;
    case Severity::kNotice:
      break;
  }
  return Tone::kHeading;
}

std::string counted(std::size_t count, const char* one) {
  return fmt::format("{} {}{}", count, one, count == 1 ? "" : "s");
}

std::string textOf(const Problem& problem, const Style& style) {
  constexpr std::size_t kIndent = 2;
  std::string text = style.paint(wordFor(problem.severity), toneOf(problem.severity)) + " " +
                     style.paint("[" + problem.code + "]", Tone::kDim) + "\n";
  text += style.paint(wrapped(problem.what, kIndent, style.width), Tone::kHeading);
  text += wrapped("What it means: " + problem.meaning, kIndent, style.width);
  text += wrapped("What to do: " + problem.remedy, kIndent, style.width);
  // Not wrapped: it is to be copied.
  if (!problem.command.empty()) text += "    " + shown(problem.command) + "\n";
  if (problem.set) text += style.paint("  File: " + shown(problem.file), Tone::kDim) + "\n";
  return text;
}

std::string summary(const Problems& problems, std::size_t sets) {
  if (problems.empty()) return fmt::format("No problems found in {}.\n", counted(sets, "set"));
  std::string parts;
  for (const Severity severity : {Severity::kError, Severity::kWarning, Severity::kNotice}) {
    const auto count =
        std::count_if(problems.begin(), problems.end(),
                      [severity](const Problem& problem) { return problem.severity == severity; });
    if (count == 0) continue;
    parts += parts.empty() ? "" : ", ";
    parts += counted(static_cast<std::size_t>(count), wordFor(severity));
  }
  return fmt::format("{} found in {}: {}.\n", counted(problems.size(), "problem"),
                     counted(sets, "set"), parts);
}

Json objectOf(const Problem& problem) {
  return {{"code", problem.code},
          {"severity", wordFor(problem.severity)},
          {"set", problem.set ? Json(problem.set->name) : Json(nullptr)},
          {"index", problem.set ? Json(problem.set->index) : Json(nullptr)},
          {"file", problem.file},
          {"problem", problem.what},
          {"meaning", problem.meaning},
          {"remedy", problem.remedy},
          {"command", problem.command.empty() ? Json(nullptr) : Json(problem.command)},
          {"by", problem.by}};
}

CheckSubject::HostFacts factsOf(const Context& context, const Rehearsal::Result& rehearsal) {
  CheckSubject::HostFacts facts{.mayStart = rehearsal.mayStart};
  const auto* const state =
      rehearsal.hostState ? rehearsal.hostState->as<PropertyList::Dictionary>() : nullptr;
  const auto* const application = state != nullptr ? state->find("application") : nullptr;
  const auto* const name =
      application != nullptr ? application->as<PropertyList::String>() : nullptr;
  if (name != nullptr) facts.application = *name;
  if (!context.isAboutNow || !context.isOwnHome) return facts;
  AgentState agent;
  if (!askAgent(agent, context)) return facts;
  for (const AgentState::Set& set : agent.sets) {
    if (set.futileStarts > 0) facts.futileStarts[set.name] = set.futileStarts;
  }
  return facts;
}

Problem scriptProblem(const StartupError& error) {
  Problem problem = CheckSubject::problem("host-script", Severity::kError);
  problem.what = fmt::format("The host's scripts cannot be loaded: {}.", shown(error.what()));
  problem.meaning = "An agent that is started with them ends at once, and nothing is backed up.";
  problem.remedy = "Install KVScheduler again, or name another bundle with --bundle.";
  return problem;
}

int check(const Context& context) {
  settleZone();
  const auto application = makeQtApplication();
  Problems problems;
  std::unique_ptr<const Explainer> explainer;
  std::unique_ptr<const Sets> ownSets;
  try {
    explainer = std::make_unique<Explainer>(context);
  } catch (const StartupError& error) {
    problems.push_back(scriptProblem(error));
    ownSets = std::make_unique<Sets>(context);
  }
  const Sets& sets = explainer ? explainer->sets() : *ownSets;
  const CheckSubject subject(
      context, sets,
      explainer ? factsOf(context, explainer->rehearsal()) : CheckSubject::HostFacts());
  Problems found = problemsOf(subject);
  problems.insert(problems.end(), std::make_move_iterator(found.begin()),
                  std::make_move_iterator(found.end()));
  if (context.asJson) {
    Json list = Json::array();
    for (const Problem& problem : problems) list.push_back(objectOf(problem));
    printJson({{"at", utcStamp(subject.now())},
               {"sets", sets.all().size()},
               {"problems", std::move(list)}});
  } else {
    std::string text;
    for (const Problem& problem : problems) text += textOf(problem, context.style) + "\n";
    print(text + summary(problems, sets.all().size()) + noAgentRemark(context));
  }
  return static_cast<int>(problems.empty() ? ExitStatus::kDone : ExitStatus::kProblems);
}

}  // namespace

void addCheckCommand(CLI::App& app, Selection& selection) {
  CLI::App* const command = app.add_subcommand(
      "check", "Problems that cannot be seen otherwise, what they mean and what to do");
  command->callback([&selection] { selection.run = check; });
}

}  // namespace kv::kvctl
