#include "scheduler/LaunchSequence.h"

#include <array>
#include <cassert>

#include "scheduler/FieldReaders.h"

namespace kv {
namespace {

/// The trace lines of one call site; a null pointer writes no line.
struct SiteTexts {
  CallSite site;
  const char* volumeAsked;    ///< after the question, whatever the answer
  const char* volumePresent;  ///< before `volumeSeen` on a true answer
  const char* volumeSeen;     ///< on a true answer
  const char* launching;      ///< with the set name, before the route is chosen
  const char* noVolume;       ///< with the set name
  const char* open;
  const char* notOpen;
};

// The differences between the sites are part of the trace: a colon, two blanks, a line twice.
constexpr std::array<SiteTexts, 5> kTexts = {{
    {CallSite::kWeeklyOnceADay, nullptr, nullptr, nullptr, nullptr,
     "No volume present for backup set: ", "launch via script = backup is open ...",
     "launch Kelvara+ - backup is NOT running ..."},
    {CallSite::kWeeklyNormal, nullptr, nullptr, nullptr, nullptr,
     "No volume present for backup set: ", "launch via script - backup is  running ...",
     "launch Kelvara+ app - backup is not running ..."},
    {CallSite::kDailyOnceADay, nullptr, nullptr, "is volume",
     ">>Launching set now = ", "No volume present for backup set ",
     "launch via script - Kelvara+ is open ...", "launch Kelvara+ app -  Kelvara+ is not open ..."},
    {CallSite::kDailyNormal, "post checkIfDiskExists  ", "post checkIfDiskExists  ",
     "It is a volume", nullptr, "No volume present for backup set ",
     "launch via script - Kelvara+ is open ...", "launch via proc -  Kelvara+ is not open ..."},
    {CallSite::kInterval, nullptr, nullptr, nullptr, nullptr, "No volume present for backup set ",
     "launch via script - Kelvara+ app IS open...", "launch Kelvara+ app - backup is NOT open..."},
}};

const SiteTexts& textsOf(CallSite site) {
  const auto& texts = kTexts.at(static_cast<std::size_t>(site));
  assert(texts.site == site);
  return texts;
}

void writeLine(Trace& trace, const char* text) {
  if (text != nullptr) trace.logString(text);
}

bool isVolumePresent(const SiteTexts& texts, const TaskRecord& record, Host* host, Trace& trace) {
  const bool present =
      host != nullptr && host->checkIfDiskExists_fromSchedule(record.destinationPath(), 1);
  writeLine(trace, texts.volumeAsked);
  if (!present) return false;
  writeLine(trace, texts.volumePresent);
  writeLine(trace, texts.volumeSeen);
  return true;
}

/// Reads an object that the host answered by its integer value.
bool answersYes(const std::optional<PropertyList>& answer) {
  return answer && integerValue(&*answer) != 0;
}

}  // namespace

LaunchVerdict decideLaunch(CallSite site, const TaskRecord& record, bool launchedAlready,
                           Host* host, Trace& trace) {
  const SiteTexts& texts = textsOf(site);
  if (!isVolumePresent(texts, record, host, trace)) {
    trace.logString_varstr(texts.noVolume, record.shownSet());
    return LaunchVerdict::kNoVolume;
  }
  if (answersYes(host->checkRunningBackupStatus())) {
    trace.logString_varstr("Skip backup > one is currently running: ", record.shownSet());
    return LaunchVerdict::kBackupRunning;
  }
  if (site != CallSite::kInterval && launchedAlready) return LaunchVerdict::kAlreadyLaunched;
  if (texts.launching != nullptr) trace.logString_varstr(texts.launching, record.shownSet());
  const bool isOpen = answersYes(host->checkBackupStatus());
  trace.logString(isOpen ? texts.open : texts.notOpen);
  return isOpen ? LaunchVerdict::kAskOpenApplication : LaunchVerdict::kLaunchApplication;
}

}  // namespace kv
