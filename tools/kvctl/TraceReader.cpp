#include "tools/kvctl/TraceReader.h"

#include <algorithm>
#include <array>
#include <iterator>
#include <utility>

namespace kv::kvctl {
namespace {

constexpr std::string_view kStars =
    "*****************************************************************";
constexpr std::string_view kDashes = "---------------------------------";

/// More than any schedule has; a trace that claims more gets no names for the sets tried.
constexpr std::size_t kMostOverdue = 10'000;
constexpr std::size_t kLongestOverdue = 4096;

bool isTimeOfDay(std::string_view text) {
  constexpr std::string_view kForm = "00:00:00";
  return text.size() == kForm.size() &&
         std::equal(text.begin(), text.end(), kForm.begin(), [](char character, char form) {
           return form == ':' ? character == ':' : character >= '0' && character <= '9';
         });
}

/// Splits off the time of day and the tag that the line writers put in front.
TraceLine split(std::string_view line) {
  constexpr std::size_t kTimeLength = 8;
  const std::string_view time = line.substr(0, kTimeLength);
  if (isTimeOfDay(time)) {
    const std::string_view rest = line.substr(kTimeLength);
    for (const std::string_view tag : {" [Timer] ", "  "}) {
      if (rest.starts_with(tag)) return {.time = time, .text = rest.substr(tag.size())};
    }
  }
  return {.time = {}, .text = line};
}

Tone toneOf(std::string_view text) {
  struct Beginning {
    std::string_view text;
    Tone tone;
  };
  static constexpr Beginning kBeginnings[] = {{"Timer fired: ", Tone::kHeading},
                                              {"Launching now ", Tone::kGood},
                                              {"Time compare is a go", Tone::kGood},
                                              {"Once-a-day proceeding", Tone::kGood},
                                              {"adding set to ", Tone::kGood},
                                              {"No volume present", Tone::kWarning},
                                              {"Skip backup", Tone::kWarning},
                                              {"Paused", Tone::kWarning},
                                              {"debug interval past", Tone::kWarning},
                                              {"NO go: ", Tone::kDim},
                                              {"***", Tone::kDim},
                                              {"---", Tone::kDim}};
  const auto* const found =
      std::find_if(std::begin(kBeginnings), std::end(kBeginnings),
                   [text](const Beginning& one) { return text.starts_with(one.text); });
  return found == std::end(kBeginnings) ? Tone::kPlain : found->tone;
}

/// What follows `label` in `text`.
std::optional<std::string_view> after(std::string_view label, std::string_view text) {
  if (!text.starts_with(label)) return std::nullopt;
  return text.substr(label.size());
}

bool isBetweenTicks(std::string_view text) {
  return text.starts_with("Run Timer now ") || text == "Stopping Scheduling Timer";
}

}  // namespace

TraceLine TraceReader::take(std::string_view text) {
  TraceLine line = split(text);
  if (!hasTick_) beginTick(line);
  if (!line.time.empty()) {
    line.tone = toneOf(line.text);
    const bool followsStars = std::exchange(afterStars_, false);
    if (line.text == kStars) {
      beginTick(line);
      line.isHeading = afterStars_ = true;
    } else if (const auto fired = after("Timer fired: ", line.text)) {
      if (!followsStars) beginTick(line);
      line.isHeading = true;
      fired_ = *fired;
    } else {
      classify(line);
    }
  }
  return line;
}

void TraceReader::classify(TraceLine& line) {
  const std::string_view text = line.text;
  if (text.starts_with("plist list:")) {
    beginGroup(line, Stage::kSummary, TracePass::kNone, std::nullopt);
  } else if (const auto checked = after("Checking ************** : ", text)) {
    beginGroup(line, Stage::kMain, TracePass::kMain, std::string(*checked));
  } else if (text == kDashes) {
    beginGroup(line, Stage::kOrder, TracePass::kNone, std::nullopt);
  } else if (const auto sorted = after("Sorted task: ", text)) {
    beginGroup(line, Stage::kOrder, TracePass::kOrder,
               std::string(sorted->substr(0, sorted->rfind(" type:"))));
  } else if (const auto minutes = after("adding set to min list: ", text)) {
    remember(*minutes);
  } else if (const auto hours = after("adding set to hour list: ", text)) {
    remember(*hours);
  } else if (text.starts_with("sorted array count: ")) {
    // The search ends here: a second end is another tick's.
    if (stage_ == Stage::kInterval) beginTick(line);
    beginGroup(line, Stage::kInterval, TracePass::kNone, std::nullopt);
  } else if (text == "Sorted minutes or hours post loop") {
    beginGroup(line, Stage::kInterval, TracePass::kInterval, nextTried());
  } else if (text.starts_with("Launching now ")) {
    hasLaunched_ = true;
  } else if (isBetweenTicks(text)) {
    beginGroup(line, stage_, TracePass::kNone, std::nullopt);
  }
}

void TraceReader::beginTick(TraceLine& line) {
  stage_ = Stage::kNew;
  pass_ = TracePass::kNone;
  set_.reset();
  fired_.clear();
  hasTick_ = true;
  hasLaunched_ = false;
  overdue_.clear();
  line.beginsTick = line.beginsGroup = true;
}

void TraceReader::beginGroup(TraceLine& line, Stage stage, TracePass pass,
                             std::optional<std::string> set) {
  // A tick goes through its stages once, and a launch is the end of it.
  if (stage < stage_ || (hasLaunched_ && !isBetweenTicks(line.text))) beginTick(line);
  stage_ = stage;
  if (pass == TracePass::kNone && pass_ == TracePass::kNone) return;
  pass_ = pass;
  set_ = std::move(set);
  line.beginsGroup = true;
}

void TraceReader::remember(std::string_view set) {
  if (overdue_.size() > kMostOverdue) return;
  overdue_.emplace_back(set.size() <= kLongestOverdue ? set : std::string_view());
}

std::optional<std::string> TraceReader::nextTried() {
  if (overdue_.empty() || overdue_.size() > kMostOverdue) return std::nullopt;
  std::string set = std::move(overdue_.back());
  overdue_.pop_back();
  if (set.empty()) return std::nullopt;
  return set;
}

}  // namespace kv::kvctl
