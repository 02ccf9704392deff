#include "logging/TerminalColors.h"

#include <algorithm>
#include <atomic>
#include <cstdlib>
#include <mutex>
#include <string_view>

namespace kv {
namespace {

constinit std::atomic<TerminalColors::Kind> processKind{TerminalColors::Kind::kNone};
constinit std::atomic<const TerminalPalette*> processPalette{nullptr};
constinit std::once_flag settled;

char lowered(char letter) {
  return letter >= 'A' && letter <= 'Z' ? static_cast<char>(letter - 'A' + 'a') : letter;
}

/// `part` is in lower case.
bool containsInAnyCase(std::string_view text, std::string_view part) {
  const auto same = [](char letter, char expected) { return lowered(letter) == expected; };
  return std::search(text.begin(), text.end(), part.begin(), part.end(), same) != text.end();
}

}  // namespace

TerminalColors TerminalColors::fromEnvironment(const Lookup& lookup) {
  const char* xcode = lookup("XcodeColors");
  if (xcode != nullptr && std::string_view(xcode) == "YES") return {.kind = Kind::kXcode};
  const char* terminal = lookup("TERM");
  if (terminal == nullptr || !containsInAnyCase(terminal, "color")) return {};
  const bool large = containsInAnyCase(terminal, "256");
  return {.kind = Kind::kAnsi,
          .palette = large ? &TerminalPalette::colors256() : &TerminalPalette::colors16()};
}

TerminalColors TerminalColors::ofProcess() {
  return {.kind = processKind.load(), .palette = processPalette.load()};
}

void TerminalColors::settleForProcess() {
  std::call_once(settled, [] {
    const auto colors = fromEnvironment([](const char* name) { return std::getenv(name); });
    if (colors.palette != nullptr) setPaletteOfProcess(*colors.palette);
    processKind = colors.kind;
  });
}

void TerminalColors::setPaletteOfProcess(const TerminalPalette& palette) {
  const TerminalPalette* none = nullptr;
  processPalette.compare_exchange_strong(none, &palette);
}

}  // namespace kv
