#include "tools/kvctl/ExitStatus.h"

#include <fmt/format.h>

namespace kv::kvctl {
namespace {

struct Meaning {
  ExitStatus status;
  const char* text;
};

constexpr Meaning kMeanings[] = {
    {ExitStatus::kDone, "done"},
    {ExitStatus::kProblems, "check: there are problems; replay: the decisions differ"},
    {ExitStatus::kUsage, "the command line makes no sense"},
    {ExitStatus::kUnknownSet, "no backup set has this name"},
    {ExitStatus::kUnreadable, "a file is missing or cannot be understood"},
    {ExitStatus::kNotRunning, "status: no agent is running"},
    {ExitStatus::kUnexpected, "something unexpected, such as output that cannot be written"},
};

}  // namespace

std::string exitStatusHelp() {
  std::string text = "Exit statuses:\n";
  for (const Meaning& meaning : kMeanings) {
    text += fmt::format("  {:<4}{}\n", static_cast<int>(meaning.status), meaning.text);
  }
  return text;
}

}  // namespace kv::kvctl
