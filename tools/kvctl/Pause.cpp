#include "tools/kvctl/Pause.h"

#include <algorithm>
#include <cstddef>
#include <string_view>

#include "tools/kvbackup/LocalCalendar.h"
#include "tools/kvctl/Output.h"

namespace kv::kvctl {
namespace {

/// The default host's pauses last until the next day at the longest, of 25 hours and a little.
constexpr Seconds kLongestPause{26.0 * 3600};
/// By how much a clock may have been put right since a pause began.
constexpr Seconds kTolerance{5.0 * 60};
constexpr std::size_t kLongestFile = std::size_t{1} << 16;

/// An instant as JavaScript writes it, "2024-03-05T08:30:00.000Z".
std::optional<Date> instantOf(const Json& object, const char* key) {
  const auto found = object.find(key);
  if (found == object.end() || !found->is_string()) return std::nullopt;
  std::string stamp = found->get<std::string>();
  constexpr std::size_t kPoint = std::string_view("2024-03-05T08:30:00").size();
  if (stamp.size() > kPoint + 1 && stamp[kPoint] == '.' && stamp.back() == 'Z') {
    stamp.erase(kPoint, stamp.size() - 1 - kPoint);
  }
  return dateFromUtcStamp(stamp);
}

}  // namespace

std::optional<Pause> pauseIn(const std::string& text, Date now) {
  const Json found = Json::parse(text, nullptr, false);
  if (!found.is_object() || !found.contains("until")) return std::nullopt;
  if (found["until"].is_null()) return Pause{};
  const auto end = instantOf(found, "until");
  if (!end) return std::nullopt;
  const Date earliest = *end + -kLongestPause;
  const Date since = std::max(instantOf(found, "since").value_or(earliest), earliest);
  // With the clock set back it would last longer than it was meant to.
  if (*end <= now || *end - now > *end - since + kTolerance) return std::nullopt;
  return Pause{end};
}

std::optional<Pause> readPause(const Context& context) {
  const auto text = context.files->read(context.stateFolder + "/paused.json", kLongestFile);
  return text ? pauseIn(*text, context.clock->now()) : std::nullopt;
}

}  // namespace kv::kvctl
