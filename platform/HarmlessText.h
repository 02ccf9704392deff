#pragma once

#include <algorithm>
#include <iterator>
#include <string>
#include <string_view>

#include "platform/Utf8.h"

namespace kv {

/// Whether a character does something to the text around it when it is shown: those that end lines
/// or that a terminal obeys, and those that reorder, hide or mark others. What joins characters
/// (U+200C, U+200D) is part of ordinary words and pictures.
inline bool isHarmful(char32_t character) {
  struct Range {
    char32_t first;
    char32_t last;
  };
  static constexpr Range kRanges[] = {
      {0x00, 0x1F},     {0x7F, 0x9F},     {0xAD, 0xAD},     {0x61C, 0x61C},   {0x200B, 0x200B},
      {0x200E, 0x200F}, {0x2028, 0x202E}, {0x2060, 0x206F}, {0xFEFF, 0xFEFF}, {0xFFF9, 0xFFFB}};
  return std::any_of(std::begin(kRanges), std::end(kRanges), [character](const Range& range) {
    return character >= range.first && character <= range.last;
  });
}

/// `text` as one line of well-formed UTF-8 that shows what it says, with `substitute` in the place
/// of each harmful character.
inline std::string harmless(std::string_view text, char substitute) {
  std::string result;
  while (!text.empty()) {
    const char32_t character = takeUtf8(text);
    if (isHarmful(character)) {
      result += substitute;
    } else {
      appendUtf8(result, character);
    }
  }
  return result;
}

}  // namespace kv
