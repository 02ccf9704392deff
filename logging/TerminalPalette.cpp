#include "logging/TerminalPalette.h"

#include <fmt/format.h>

#include <array>
#include <cmath>
#include <cstdint>

namespace kv {
namespace {

struct Row {
  std::uint8_t red;
  std::uint8_t green;
  std::uint8_t blue;
};

constexpr std::array<Row, 16> kColors16 = {{
    {0, 0, 0},
    {194, 54, 33},
    {37, 188, 36},
    {173, 173, 39},
    {73, 46, 225},
    {211, 56, 211},
    {51, 187, 200},
    {203, 204, 205},
    {129, 131, 131},
    {252, 57, 31},
    {49, 231, 34},
    {234, 236, 35},
    {88, 51, 255},
    {249, 53, 248},
    {20, 240, 240},
    {233, 235, 235},
}};

// The 240 colours as a screen shows them, which is lighter in the dark shades than the arithmetic
// of the codes says. Known by measurement: the ends of the cube and of the greys, and a few shades
// of one or two components. In between:
//   - a component has the measured value at its levels 0, 1 and 5 and is spread evenly from 1 to 5
//     (blue at level 1 is the mean of the other two);
//   - the greys are spread evenly between the measured ends.
// A measured shade stands as it was measured, also where it departs from this rule.
constexpr int kCubeLevels = 6;
constexpr std::array<std::uint8_t, kCubeLevels> kRedLevels = {47, 140, 169, 197, 226, 254};
constexpr std::array<std::uint8_t, kCubeLevels> kGreenLevels = {49, 128, 160, 192, 223, 255};
constexpr std::array<std::uint8_t, kCubeLevels> kBlueLevels = {49, 134, 164, 195, 225, 255};
constexpr int kGreys = 24;
constexpr Row kDarkestGrey = {52, 53, 53};
constexpr Row kLightestGrey = {240, 242, 242};
constexpr int kFirstNumber = 16;
struct MeasuredShade {
  int number;
  Row row;
};
constexpr MeasuredShade kMeasuredShades[] = {
    {21, {88, 51, 255}},
    {22, {42, 128, 37}},
    {51, {42, 253, 252}},
    {52, {140, 48, 40}},
};

std::vector<Row> rows256() {
  std::vector<Row> rows;
  for (const std::uint8_t red : kRedLevels) {
    for (const std::uint8_t green : kGreenLevels) {
      for (const std::uint8_t blue : kBlueLevels) rows.push_back({red, green, blue});
    }
  }
  const auto between = [](std::uint8_t first, std::uint8_t last, int step) {
    return static_cast<std::uint8_t>(std::lround(first + (last - first) * step / (kGreys - 1.0)));
  };
  for (int step = 0; step < kGreys; ++step) {
    rows.push_back({between(kDarkestGrey.red, kLightestGrey.red, step),
                    between(kDarkestGrey.green, kLightestGrey.green, step),
                    between(kDarkestGrey.blue, kLightestGrey.blue, step)});
  }
  for (const auto& [number, row] : kMeasuredShades) {
    rows[static_cast<std::size_t>(number - kFirstNumber)] = row;
  }
  return rows;
}

LogColor colorOf(const Row& row) {
  return LogColor::fromBytes(row.red, row.green, row.blue);
}

std::vector<TerminalPalette::Entry> entries16() {
  std::vector<TerminalPalette::Entry> entries;
  for (std::size_t index = 0; index < kColors16.size(); ++index) {
    const char* bright = index < 8 ? "" : "1;";
    entries.push_back({fmt::format("{}3{}m", bright, index % 8),
                       fmt::format("{}4{}m", bright, index % 8), colorOf(kColors16[index])});
  }
  return entries;
}

std::vector<TerminalPalette::Entry> entries256() {
  std::vector<TerminalPalette::Entry> entries;
  int number = kFirstNumber;
  for (const Row& row : rows256()) {
    entries.push_back(
        {fmt::format("38;5;{}m", number), fmt::format("48;5;{}m", number), colorOf(row)});
    ++number;
  }
  return entries;
}

}  // namespace

TerminalPalette::TerminalPalette(const std::vector<Entry>& entries) {
  for (const Entry& entry : entries) {
    foregroundCodes_.push_back(entry.foreground);
    backgroundCodes_.push_back(entry.background);
    colors_.push_back(entry.color);
  }
}

// Neither palette is ever destroyed: the last line of a program may need it.

const TerminalPalette& TerminalPalette::colors16() {
  static const auto* palette = new TerminalPalette(entries16());
  return *palette;
}

const TerminalPalette& TerminalPalette::colors256() {
  static const auto* palette = new TerminalPalette(entries256());
  return *palette;
}

std::size_t TerminalPalette::codeIndexForColor(const LogColor& color) const {
  std::size_t best = 0;
  double bestDistance = 100.0;  // beyond what two colours can be apart
  for (std::size_t index = 0; index < colors_.size(); ++index) {
    const LogColor& entry = colors_[index];
    const double distance =
        std::hypot(color.red - entry.red, color.green - entry.green, color.blue - entry.blue);
    if (distance < bestDistance) {
      best = index;
      bestDistance = distance;
    }
  }
  return best;
}

}  // namespace kv
