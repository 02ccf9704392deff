#include "logging/DDTTYLoggerColorProfile.h"

#include <fmt/format.h>

#include <algorithm>

namespace kv {
namespace {

constexpr const char* kEscape = "\x1b[";

std::uint8_t byteOf(double component) {
  // The first comparison is false for what is no number.
  const double bounded = component > 0 ? std::min(component, 1.0) : 0.0;
  return static_cast<std::uint8_t>(bounded * 255.0);
}

}  // namespace

template <std::size_t kSize>
bool DDTTYLoggerColorProfile::EscapeCode<kSize>::set(std::string_view text) {
  if (text.size() >= kSize) return false;
  std::copy(text.begin(), text.end(), bytes.begin());
  length = text.size();
  return true;
}

bool DDTTYLoggerColorProfile::Side::prepare(
    const LogColor& color, const TerminalColors& terminal,
    const std::vector<std::string>& (TerminalPalette::*codes)() const, const char* name) {
  components = {byteOf(color.red), byteOf(color.green), byteOf(color.blue)};
  if (terminal.kind == TerminalColors::Kind::kNone) return true;
  if (terminal.kind == TerminalColors::Kind::kXcode) {
    return code.set(
        fmt::format("{}{}{},{},{};", kEscape, name, components[0], components[1], components[2]));
  }
  if (terminal.palette == nullptr || terminal.palette->colors().empty()) return false;
  codeIndex = terminal.palette->codeIndexForColor(color);
  codeRaw = (terminal.palette->*codes)()[codeIndex];
  return code.set(kEscape + *codeRaw);
}

std::shared_ptr<const DDTTYLoggerColorProfile> DDTTYLoggerColorProfile::create(
    const std::optional<LogColor>& foreground, const std::optional<LogColor>& background,
    std::uint64_t flag, std::int64_t context, const TerminalColors& terminal) {
  const std::shared_ptr<DDTTYLoggerColorProfile> profile(
      new DDTTYLoggerColorProfile(flag, context));
  if (foreground &&
      !profile->foreground_.prepare(*foreground, terminal, &TerminalPalette::codes_fg, "fg")) {
    return nullptr;
  }
  if (background &&
      !profile->background_.prepare(*background, terminal, &TerminalPalette::codes_bg, "bg")) {
    return nullptr;
  }
  if (terminal.kind == TerminalColors::Kind::kAnsi) profile->reset_.set("\x1b[0m");
  if (terminal.kind == TerminalColors::Kind::kXcode) profile->reset_.set("\x1b[;");
  return profile;
}

std::string DDTTYLoggerColorProfile::description() const {
  const auto raw = [](const Side& side) { return side.codeRaw ? side.codeRaw->c_str() : "(null)"; };
  return fmt::format(
      "<DDTTYLoggerColorProfile: {} mask:{} ctxt:{} fg:{},{},{} bg:{},{},{} fgCode:{} bgCode:{}>",
      fmt::ptr(this), static_cast<std::int32_t>(mask_), context_, fg_r(), fg_g(), fg_b(), bg_r(),
      bg_g(), bg_b(), raw(foreground_), raw(background_));
}

}  // namespace kv
