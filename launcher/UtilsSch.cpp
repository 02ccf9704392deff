#include "launcher/UtilsSch.h"

#include <fmt/format.h>

#include <algorithm>
#include <iterator>
#include <utility>

#include "platform/LocalTime.h"
#include "platform/PlatformError.h"
#include "platform/PropertyList.h"

namespace kv {
namespace {

using Environment = UtilsSch::Environment;
using ArgumentList = UtilsSch::ArgumentList;

constexpr const char* kAppHandedOff = "SCH end block running app.";
constexpr const char* kScriptHandedOff = "end SCH block";

/// Which elements a program is started with.
using ArgumentChoice = std::optional<std::vector<std::string>> (*)(const ArgumentList&);
/// What becomes of a start that the platform refused.
using FailureReport = void (*)(SystemLog&, const PlatformError&);

const std::string& element(const ArgumentList& list, std::size_t index) {
  if (index >= list.size()) {
    throw PlatformError(fmt::format("no element {} in an argument list of {}", index, list.size()));
  }
  return list[index];
}

std::vector<std::string> firstTwoArguments(const ArgumentList& list) {
  return {element(list, 1), element(list, 2)};
}

bool isLaunchToken(const std::string& text) {
  return std::find(std::begin(UtilsSch::kLaunchTokens), std::end(UtilsSch::kLaunchTokens), text) !=
         std::end(UtilsSch::kLaunchTokens);
}

/// Starts element 0 of a list that is not empty, on the background queue.
void startInBackground(const Environment& environment, ArgumentList list, ArgumentChoice choose,
                       FailureReport report) {
  environment.queue->async([launcher = environment.launcher, systemLog = environment.systemLog,
                            list = std::move(list), choose, report] {
    try {
      launcher->start(list.front(), choose(list));
    } catch (const PlatformError& error) {
      report(*systemLog, error);
    }
  });
}

void dropSilently(SystemLog&, const PlatformError&) {}

}  // namespace

std::string UtilsSch::getTmSTring(const Environment& environment) {
  return localTimeOfDay(environment.clock->now());
}

std::string UtilsSch::runAppAlone(const Environment& environment, ArgumentList list) {
  if (list.empty()) return kAppHandedOff;
  startInBackground(
      environment, std::move(list),
      [](const ArgumentList&) -> std::optional<std::vector<std::string>> { return std::nullopt; },
      dropSilently);
  return kAppHandedOff;
}

std::string UtilsSch::runApp(const Environment& environment, ArgumentList list) {
  const PropertyList shown(PropertyList::Array(list.begin(), list.end()));
  environment.systemLog->write("KVScheduler > Utils Args = " + shown.description());
  if (list.empty()) {
    environment.queue->async(
        [systemLog = environment.systemLog] { systemLog->write("SCH Utils No arguments"); });
    return kAppHandedOff;
  }
  startInBackground(
      environment, std::move(list),
      [](const ArgumentList& all) { return std::optional(firstTwoArguments(all)); },
      [](SystemLog& log, const PlatformError& error) {
        log.write(std::string("SCH Utils Problem Running Task: ") + error.what());
      });
  return kAppHandedOff;
}

std::string UtilsSch::runScript(const Environment& environment, ArgumentList list) {
  if (list.empty()) return kScriptHandedOff;
  startInBackground(
      environment, std::move(list),
      [](const ArgumentList& all) -> std::optional<std::vector<std::string>> {
        if (!isLaunchToken(element(all, 1))) return std::nullopt;
        return firstTwoArguments(all);
      },
      dropSilently);
  return kScriptHandedOff;
}

}  // namespace kv
