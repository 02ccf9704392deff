#include "logging/TerminalPalette.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstdio>

#include "logging/DDTTYLoggerColorProfile.h"
#include "logging/TerminalColors.h"

namespace kv::test {
namespace {

using Kind = TerminalColors::Kind;

constexpr LogColor kRed = {1, 0, 0};
constexpr LogColor kBlue = {0, 0, 1};

const TerminalPalette kEmptyPalette({});
const TerminalPalette kTwins({{"1m", "2m", kBlue}, {"3m", "4m", kRed}, {"5m", "6m", kRed}});

TEST(TerminalColors, AreDecidedByTheEnvironment) {
  const TerminalPalette* large = &TerminalPalette::colors256();
  const TerminalPalette* small = &TerminalPalette::colors16();
  const struct {
    const char* xcodeColors;
    const char* term;
    Kind kind;
    const TerminalPalette* palette;
  } kCases[] = {
      {nullptr, "xterm-256color", Kind::kAnsi, large},
      {nullptr, "Screen-256Color", Kind::kAnsi, large},
      {nullptr, "COLOR-256", Kind::kAnsi, large},
      {nullptr, "xterm-color", Kind::kAnsi, small},
      {nullptr, "xterm", Kind::kNone, nullptr},
      {nullptr, "vt256", Kind::kNone, nullptr},
      {nullptr, "", Kind::kNone, nullptr},
      {nullptr, nullptr, Kind::kNone, nullptr},
      {"YES", "xterm-256color", Kind::kXcode, nullptr},
      {"YES", nullptr, Kind::kXcode, nullptr},
      {"yes", "xterm-256color", Kind::kAnsi, large},
      {"YES ", "xterm", Kind::kNone, nullptr},
  };
  for (const auto& row : kCases) {
    const auto colors = TerminalColors::fromEnvironment([&](const std::string_view name) {
      if (name == "XcodeColors") return row.xcodeColors;
      return name == "TERM" ? row.term : nullptr;
    });
    SCOPED_TRACE(row.term == nullptr ? "no TERM" : row.term);
    EXPECT_EQ(colors.kind, row.kind);
    EXPECT_EQ(colors.palette, row.palette);
  }
}

TEST(TerminalPalette, HasTheMeasuredColorsAtTheirNumbers) {
  const struct {
    const TerminalPalette& palette;
    std::size_t index;
    int red, green, blue;
    const char* foreground;
    const char* background;
  } kCases[] = {
      {TerminalPalette::colors16(), 0, 0, 0, 0, "30m", "40m"},
      {TerminalPalette::colors16(), 7, 203, 204, 205, "37m", "47m"},
      {TerminalPalette::colors16(), 8, 129, 131, 131, "1;30m", "1;40m"},
      {TerminalPalette::colors16(), 15, 233, 235, 235, "1;37m", "1;47m"},
      {TerminalPalette::colors256(), 16 - 16, 47, 49, 49, "38;5;16m", "48;5;16m"},
      {TerminalPalette::colors256(), 21 - 16, 88, 51, 255, "38;5;21m", "48;5;21m"},
      {TerminalPalette::colors256(), 22 - 16, 42, 128, 37, "38;5;22m", "48;5;22m"},
      {TerminalPalette::colors256(), 51 - 16, 42, 253, 252, "38;5;51m", "48;5;51m"},
      {TerminalPalette::colors256(), 52 - 16, 140, 48, 40, "38;5;52m", "48;5;52m"},
      {TerminalPalette::colors256(), 231 - 16, 254, 255, 255, "38;5;231m", "48;5;231m"},
      {TerminalPalette::colors256(), 232 - 16, 52, 53, 53, "38;5;232m", "48;5;232m"},
      {TerminalPalette::colors256(), 255 - 16, 240, 242, 242, "38;5;255m", "48;5;255m"},
  };
  for (const auto& [palette, index, red, green, blue, foreground, background] : kCases) {
    SCOPED_TRACE(foreground);
    EXPECT_EQ(palette.codes_fg().at(index), foreground);
    EXPECT_EQ(palette.codes_bg().at(index), background);
    const LogColor color = palette.colors().at(index);
    EXPECT_DOUBLE_EQ(color.red, red / 255.0);
    EXPECT_DOUBLE_EQ(color.green, green / 255.0);
    EXPECT_DOUBLE_EQ(color.blue, blue / 255.0);
  }
  EXPECT_EQ(TerminalPalette::colors16().colors().size(), 16u);
  EXPECT_EQ(TerminalPalette::colors256().colors().size(), 240u);
}

TEST(TerminalPalette, FindsTheNearestColor) {
  const struct {
    const char* why;
    const TerminalPalette& palette;
    LogColor color;
    std::size_t index;
  } kCases[] = {
      {"pure red", TerminalPalette::colors16(), kRed, 9},
      {"black", TerminalPalette::colors16(), {0, 0, 0}, 0},
      {"white", TerminalPalette::colors16(), {1, 1, 1}, 15},
      {"pure red", TerminalPalette::colors256(), kRed, 196 - 16},
      {"white", TerminalPalette::colors256(), {1, 1, 1}, 231 - 16},
      {"a grey off the cube", TerminalPalette::colors256(), {0.4, 0.4, 0.4}, 238 - 16},
      {"equally near ones", kTwins, kRed, 1},
      {"no number", kTwins, {std::nan(""), 0, 0}, 0},
      {"out of reach", kTwins, {1000, 0, 0}, 0},
      {"an empty palette", kEmptyPalette, kRed, 0},
  };
  for (const auto& [why, palette, color, index] : kCases) {
    EXPECT_EQ(palette.codeIndexForColor(color), index) << why;
  }
}

TEST(DDTTYLoggerColorProfile, PreparesItsEscapeCodes) {
  const TerminalColors kNoColors;
  const TerminalColors kSmall{Kind::kAnsi, &TerminalPalette::colors16()};
  const TerminalColors kLarge{Kind::kAnsi, &TerminalPalette::colors256()};
  const TerminalColors kXcode{Kind::kXcode, nullptr};
  const auto kSoftRed = LogColor::fromBytes(214, 57, 30);
  const struct {
    const TerminalColors& terminal;
    std::optional<LogColor> foreground;
    std::optional<LogColor> background;
    std::string_view fgCode, bgCode, resetCode;
    std::string_view raw;
  } kCases[] = {
      {kNoColors, kRed, kBlue, "", "", "", "fgCode:(null) bgCode:(null)"},
      {kSmall, kRed, kBlue, "\x1b[1;31m", "\x1b[44m", "\x1b[0m", "fgCode:1;31m bgCode:44m"},
      {kSmall, {}, kRed, "", "\x1b[1;41m", "\x1b[0m", "fgCode:(null) bgCode:1;41m"},
      {kSmall, {}, {}, "", "", "\x1b[0m", "fgCode:(null) bgCode:(null)"},
      {kLarge, kRed, {}, "\x1b[38;5;196m", "", "\x1b[0m", "fgCode:38;5;196m bgCode:(null)"},
      {kXcode, kSoftRed, kBlue, "\x1b[fg214,57,30;", "\x1b[bg0,0,255;", "\x1b[;",
       "fgCode:(null) bgCode:(null)"},
      {kXcode, {}, {}, "", "", "\x1b[;", "fgCode:(null) bgCode:(null)"},
  };
  for (const auto& row : kCases) {
    const auto profile =
        DDTTYLoggerColorProfile::create(row.foreground, row.background, 1, 0, row.terminal);
    ASSERT_NE(profile, nullptr);
    const std::string description = profile->description();
    SCOPED_TRACE(description);
    EXPECT_EQ(profile->fgCode(), row.fgCode);
    EXPECT_EQ(profile->fgCodeLen(), row.fgCode.size());
    EXPECT_EQ(profile->bgCode(), row.bgCode);
    EXPECT_EQ(profile->bgCodeLen(), row.bgCode.size());
    EXPECT_EQ(profile->resetCode(), row.resetCode);
    EXPECT_EQ(profile->resetCodeLen(), row.resetCode.size());
    EXPECT_TRUE(description.ends_with(std::string(row.raw) + ">"));
  }
}

TEST(DDTTYLoggerColorProfile, CutsComponentsOffAndKeepsThemInRange) {
  const struct {
    double component;
    int byte;
  } kCases[] = {
      {0.0, 0},  {0.5, 127},   {254.99 / 255, 254}, {1.0, 255},      {1.5, 255},
      {-0.5, 0}, {1e300, 255}, {std::nan(""), 0},   {HUGE_VAL, 255}, {-HUGE_VAL, 0},
  };
  for (const auto& [component, byte] : kCases) {
    const LogColor color = {0, component, 1};
    const auto profile = DDTTYLoggerColorProfile::create(color, color, 1, 0, {});
    EXPECT_EQ(profile->fg_g(), byte) << component;
    EXPECT_EQ(profile->bg_g(), byte) << component;
    EXPECT_EQ(profile->fg_r(), 0);
    EXPECT_EQ(profile->bg_b(), 255);
  }
}

TEST(DDTTYLoggerColorProfile, DescribesItself) {
  // The mask is shown as a signed number of 32 bits, whatever it holds.
  const auto profile =
      DDTTYLoggerColorProfile::create(LogColor::fromBytes(1, 2, 3), LogColor::fromBytes(4, 5, 6),
                                      ~std::uint64_t{0}, -7'000'000'000, {});
  char address[32];
  std::snprintf(address, sizeof address, "%p", static_cast<const void*>(profile.get()));
  EXPECT_EQ(profile->description(),
            "<DDTTYLoggerColorProfile: " + std::string(address) +
                " mask:-1 ctxt:-7000000000 fg:1,2,3 bg:4,5,6 fgCode:(null) bgCode:(null)>");
}

TEST(DDTTYLoggerColorProfile, IsNotMadeWithoutACodeThatFits) {
  const auto make = [](const TerminalPalette* palette, bool withColor) {
    const std::optional<LogColor> color = withColor ? std::optional(kRed) : std::nullopt;
    return DDTTYLoggerColorProfile::create(color, {}, 1, 0, {Kind::kAnsi, palette});
  };
  // ESC, "[", 21 bytes and the NUL fill the 24 bytes.
  const TerminalPalette longest({{std::string(21, '1'), "4m", kRed}});
  const TerminalPalette tooLong({{std::string(22, '1'), "4m", kRed}});
  EXPECT_NE(make(&longest, true), nullptr);
  EXPECT_EQ(make(&tooLong, true), nullptr);
  EXPECT_NE(make(&tooLong, false), nullptr);
  EXPECT_EQ(make(&kEmptyPalette, true), nullptr);
  EXPECT_EQ(make(nullptr, true), nullptr);
}

}  // namespace
}  // namespace kv::test
