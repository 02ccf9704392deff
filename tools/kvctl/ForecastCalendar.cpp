#include "tools/kvctl/ForecastCalendar.h"

#include <fmt/format.h>

#include <algorithm>
#include <cstdint>

#include "platform/Utf8.h"
#include "tools/kvbackup/BackupSet.h"
#include "tools/kvbackup/LocalCalendar.h"
#include "tools/kvctl/ForecastTexts.h"

namespace kv::kvctl {
namespace {

/// "20260305T083000Z"
std::string instantText(Date date) {
  std::string stamp = utcStamp(date);
  std::erase_if(stamp, [](char c) { return c == '-' || c == ':'; });
  return stamp;
}

/// Tells the sets apart for as long as their names and places stay. (FNV-1a)
std::uint64_t fingerprint(std::size_t index, std::string_view name) {
  std::uint64_t hash = 0xcbf29ce484222325;
  for (const char c : fmt::format("{} {}", index, name)) {
    hash = (hash ^ static_cast<unsigned char>(c)) * 0x100000001b3;
  }
  return hash;
}

}  // namespace

std::string ForecastCalendar::folded(std::string_view line) {
  constexpr std::size_t kLongest = 75;
  std::string result;
  std::size_t length = 0;
  while (!line.empty()) {
    std::string character;
    appendUtf8(character, takeUtf8(line));
    if (length + character.size() > kLongest) {
      result += "\r\n ";
      length = 1;
    }
    result += character;
    length += character.size();
  }
  return result + "\r\n";
}

std::string ForecastCalendar::escaped(std::string_view text) {
  std::string result;
  while (!text.empty()) {
    const std::string_view before = text;
    takeUtf8(text);
    const std::string_view character = before.substr(0, before.size() - text.size());
    if (character == "\n") {
      result += "\\n";
    } else {
      if (character == "\\" || character == ";" || character == ",") result += '\\';
      result += shown(character);
    }
  }
  return result;
}

void ForecastCalendar::begin() {
  subject_.write(folded("BEGIN:VCALENDAR") + folded("VERSION:2.0") +
                 folded("PRODID:-//KVScheduler//kvctl forecast//EN") +
                 folded("CALSCALE:GREGORIAN"));
}

void ForecastCalendar::runs(const ForecastRun& run) {
  if (!subject_.isShown[run.index]) return;
  const auto name = BackupSet(subject_.sets[run.index]).name();
  const std::string start = instantText(run.startedAt);
  const auto seconds =
      static_cast<std::int64_t>(std::max((run.endedAt - run.startedAt).count(), 0.0));
  const std::string delay = delayText(run, subject_.names);
  const std::string description = ruleText(subject_.sets[run.index]) +
                                  (delay.empty() ? "" : "; " + delay) + ". " +
                                  assumptionText(subject_.plan);
  std::string text = folded("BEGIN:VEVENT");
  text += folded(
      fmt::format("UID:{}-{:016x}@kvscheduler", start, fingerprint(run.index, name.value_or(""))));
  text += folded("DTSTAMP:" + instantText(subject_.plan.begin));
  text += folded("DTSTART:" + start);
  text += folded(fmt::format("DURATION:PT{}S", seconds));
  text += folded("SUMMARY:" + escaped("Backup: " + name.value_or(subject_.names[run.index])));
  text += folded("DESCRIPTION:" + escaped(description));
  text += folded("TRANSP:TRANSPARENT");
  subject_.write(text + folded("END:VEVENT"));
}

void ForecastCalendar::end(const std::vector<ForecastSet>&) {
  subject_.write(folded("END:VCALENDAR"));
}

}  // namespace kv::kvctl
