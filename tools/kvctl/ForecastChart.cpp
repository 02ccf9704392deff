#include "tools/kvctl/ForecastChart.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <utility>

#include "platform/LocalTime.h"
#include "tools/kvbackup/LocalCalendar.h"
#include "tools/kvbackup/Text.h"
#include "tools/kvctl/ForecastTexts.h"
#include "tools/kvctl/Sets.h"

namespace kv::kvctl {
namespace {

constexpr double kSecondsPerDay = 86400;
constexpr int kDaysPerWeek = 7;
constexpr std::size_t kWidestName = 24;

/// What local clocks show at `date`, as seconds.
double localSeconds(Date date) {
  return date.unixSeconds() + localOffsetFromUtc(date).value_or(Seconds(0)).count();
}

/// As many columns as fit; each an even part of an hour, or of the day.
int columnsFor(std::size_t width) {
  static constexpr std::array kChoices = {96, 48, 24, 12, 8, 6, 4, 3, 2};
  for (const int choice : kChoices) {
    if (static_cast<std::size_t>(choice) <= width) return choice;
  }
  return 1;
}

std::string shortened(const std::string& name) {
  if (characterCount(name) <= kWidestName) return name;
  return std::string(firstCharacters(name, kWidestName - 1)) + "~";
}

}  // namespace

ForecastChart::ForecastChart(const ForecastSubject& subject) : subject_(subject) {
  midnight_ = std::floor(localSeconds(subject.plan.begin) / kSecondsPerDay) * kSecondsPerDay;
  days_ = static_cast<int>(std::ceil(position(subject.plan.end()) / kSecondsPerDay));
  for (std::size_t index = 0; index < subject.names.size(); ++index) {
    if (!subject.isShown[index]) continue;
    nameWidth_ = std::max(nameWidth_, characterCount(shortened(subject.names[index])));
  }
  const auto days = static_cast<std::size_t>(std::min(days_, kDaysPerWeek));
  const std::size_t taken = nameWidth_ + 1 + days + 1;
  const std::size_t left = subject.style.width > taken ? subject.style.width - taken : 0;
  columnsPerDay_ = columnsFor(left / days);
}

double ForecastChart::position(Date date) const {
  return localSeconds(date) - midnight_;
}

void ForecastChart::begin() {
  const ForecastPlan& plan = subject_.plan;
  std::string legend =
      fmt::format("Each column is {}; ", spanText(Seconds(kSecondsPerDay / columnsPerDay_)));
  legend += subject_.hasBlocks
                ? "\u2581 to \u2588: how much of it the set runs; x: skipped."
                : "-: the set runs for less than half of it, #: for more; x: skipped.";
  subject_.write(fmt::format("Forecast from {} to {}, if nothing else changes\n",
                             dayStamp(plan.begin), dayStamp(plan.end())) +
                 wrapped(assumptionText(plan), 0, subject_.style.width) +
                 wrapped(legend, 0, subject_.style.width));
  beginWeek();
}

void ForecastChart::beginWeek() {
  daysOfWeek_ = std::min(days_ - firstDay_, kDaysPerWeek);
  const auto columns = static_cast<std::size_t>(daysOfWeek_ * columnsPerDay_);
  rows_.assign(subject_.names.size(),
               Row{std::vector<double>(columns), std::vector<bool>(columns)});
}

void ForecastChart::reach(double position) {
  while (position >= (firstDay_ + kDaysPerWeek) * kSecondsPerDay &&
         firstDay_ + kDaysPerWeek < days_) {
    writeWeek();
    firstDay_ += kDaysPerWeek;
    beginWeek();
    if (const auto rest = std::exchange(rest_, std::nullopt)) {
      fill(rows_[rest->first], firstDay_ * kSecondsPerDay, rest->second);
      const double end = (firstDay_ + daysOfWeek_) * kSecondsPerDay;
      if (rest->second > end) rest_ = rest;
    }
  }
}

void ForecastChart::fill(Row& row, double from, double until) const {
  const double width = kSecondsPerDay / columnsPerDay_;
  const double origin = firstDay_ * kSecondsPerDay;
  for (std::size_t column = 0; column < row.filled.size(); ++column) {
    const double begin = origin + static_cast<double>(column) * width;
    const double part = std::min(until, begin + width) - std::max(from, begin);
    // A run that ends some seconds behind a full column does not look as if it went on.
    const bool isSliver = from < begin && part < width / 20;
    if (part > 0 && !isSliver)
      row.filled[column] = std::min(row.filled[column] + part / width, 1.0);
  }
}

void ForecastChart::runs(const ForecastRun& run) {
  const double from = position(run.startedAt);
  // Where clocks are set back it may seem to end before it begins.
  const double until = std::max(position(run.endedAt), from + 1);
  reach(from);
  fill(rows_[run.index], from, until);
  if (until > (firstDay_ + daysOfWeek_) * kSecondsPerDay) rest_ = {run.index, until};
}

void ForecastChart::skips(const ForecastSkip& skip) {
  const double due = position(skip.due);
  reach(due);
  const double column =
      std::floor((due - firstDay_ * kSecondsPerDay) / kSecondsPerDay * columnsPerDay_);
  Row& row = rows_[skip.index];
  if (column >= 0 && column < static_cast<double>(row.skipped.size())) {
    row.skipped[static_cast<std::size_t>(column)] = true;
  }
}

std::string ForecastChart::label(std::string text) const {
  const std::size_t length = characterCount(text);
  return text.append(nameWidth_ > length ? nameWidth_ - length : 0, ' ') + " ";
}

std::string ForecastChart::headings() const {
  const auto width = static_cast<std::size_t>(columnsPerDay_);
  std::string days = label("");
  for (int day = firstDay_; day < firstDay_ + daysOfWeek_; ++day) {
    // Noon is far from what the offset of another season can move.
    const Date noon = Date::fromUnixSeconds(midnight_ + (day + 0.5) * kSecondsPerDay) +
                      -localOffsetFromUtc(subject_.plan.begin).value_or(Seconds(0));
    const std::string stamp = dayStamp(noon);  // "Sat 2026-11-21 12:00"
    const std::string number = stamp.substr(sizeof("Sat 2026-11-") - 1, 2);
    const std::string wide = stamp.substr(0, 3) + " " + number;
    days += fmt::format("|{:<{}.{}}", width >= wide.size() ? wide : number, width, width);
  }
  return days + "|\n";
}

std::string ForecastChart::cells(const Row& row) const {
  static constexpr std::array kBlocks = {"\u2581", "\u2582", "\u2583", "\u2584",
                                         "\u2585", "\u2586", "\u2587", "\u2588"};
  std::string text;
  for (std::size_t column = 0; column < row.filled.size(); ++column) {
    if (column % static_cast<std::size_t>(columnsPerDay_) == 0) text += '|';
    const double filled = row.filled[column];
    if (row.skipped[column]) {
      text += subject_.style.paint("x", Tone::kBad);
    } else if (filled <= 0) {
      text += ' ';
    } else if (!subject_.hasBlocks) {
      text += filled < 0.5 ? '-' : '#';
    } else {
      const auto level = static_cast<std::size_t>(std::ceil(filled * kBlocks.size())) - 1;
      text += subject_.style.paint(kBlocks[std::min(level, kBlocks.size() - 1)], Tone::kGood);
    }
  }
  return text + "|\n";
}

void ForecastChart::writeWeek() {
  std::string text = "\n" + headings();
  for (std::size_t index = 0; index < rows_.size(); ++index) {
    if (subject_.isShown[index]) {
      text += label(shortened(subject_.names[index])) + cells(rows_[index]);
    }
  }
  subject_.write(text);
}

void ForecastChart::end(const std::vector<ForecastSet>& sets) {
  reach(position(subject_.plan.end()) - 1);
  writeWeek();
  std::string text;
  for (std::size_t index = 0; index < sets.size(); ++index) {
    if (!subject_.isShown[index] || sets[index].runs > 0) continue;
    text += fmt::format("{}: {}\n", subject_.names[index], sets[index].whyNever);
  }
  if (!text.empty()) subject_.write("\nNot started at all\n" + text);
}

}  // namespace kv::kvctl
