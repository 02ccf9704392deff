#include "tools/kvbackup/Text.h"

#include <fmt/format.h>

#include <array>

#include "platform/HarmlessText.h"
#include "platform/Utf8.h"

namespace kv {
namespace {

bool isControl(char32_t character) {
  return character < 0x20 || (character >= 0x7F && character < 0xA0);
}

}  // namespace

bool isPlainText(std::string_view text) {
  while (!text.empty()) {
    const char32_t character = takeUtf8(text);
    if (isControl(character) || character == kReplacementCharacter) return false;
  }
  return true;
}

std::string shown(std::string_view text) {
  return harmless(text, '?');
}

std::size_t characterCount(std::string_view text) {
  std::size_t count = 0;
  for (; !text.empty(); ++count) takeUtf8(text);
  return count;
}

std::string_view firstCharacters(std::string_view text, std::size_t count) {
  std::string_view rest = text;
  while (count-- > 0 && !rest.empty()) takeUtf8(rest);
  return text.substr(0, text.size() - rest.size());
}

std::string sizeText(std::uint64_t bytes) {
  static constexpr std::array kUnits = {"kB", "MB", "GB", "TB", "PB", "EB"};
  if (bytes < 1000) return fmt::format("{} bytes", bytes);
  double size = static_cast<double>(bytes) / 1000;
  std::size_t unit = 0;
  for (; size >= 999.95 && unit + 1 < kUnits.size(); ++unit) size /= 1000;
  return fmt::format("{:.1f} {}", size, kUnits[unit]);
}

}  // namespace kv
