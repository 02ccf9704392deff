#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace kv {

inline constexpr char32_t kReplacementCharacter = 0xFFFD;

/// Takes the first character off `text`, which must not be empty; each byte that begins no
/// well-formed character yields U+FFFD.
inline char32_t takeUtf8(std::string_view& text) {
  const auto byte = [&text](std::size_t index) {
    return index < text.size() ? static_cast<unsigned char>(text[index]) : 0u;
  };
  const unsigned lead = byte(0);
  const std::size_t length = lead < 0x80   ? 1
                             : lead < 0xC2 ? 0
                             : lead < 0xE0 ? 2
                             : lead < 0xF0 ? 3
                             : lead < 0xF5 ? 4
                                           : 0;
  char32_t character = length == 1 ? lead : lead & (0x7Fu >> length);
  bool valid = length > 0;
  for (std::size_t index = 1; valid && index < length; ++index) {
    valid = (byte(index) & 0xC0) == 0x80;
    character = character << 6 | (byte(index) & 0x3F);
  }
  valid = valid && (length < 3 || character >= (length == 3 ? 0x800u : 0x10000u)) &&
          character <= 0x10FFFF && (character < 0xD800 || character > 0xDFFF);
  text.remove_prefix(valid ? length : 1);
  return valid ? character : kReplacementCharacter;
}

/// Whether every byte of `text` belongs to a well-formed character.
inline bool isUtf8(std::string_view text) {
  while (!text.empty()) {
    const std::string_view before = text;
    if (takeUtf8(text) != kReplacementCharacter) continue;
    if (before.substr(0, before.size() - text.size()) != "\xEF\xBF\xBD") return false;
  }
  return true;
}

/// Appends a character, which must be no surrogate and at most U+10FFFF.
inline void appendUtf8(std::string& text, char32_t character) {
  const auto append = [&text](char32_t byte) { text.push_back(static_cast<char>(byte)); };
  if (character < 0x80) {
    append(character);
    return;
  }
  if (character < 0x800) {
    append(0xC0 | character >> 6);
  } else {
    if (character < 0x10000) {
      append(0xE0 | character >> 12);
    } else {
      append(0xF0 | character >> 18);
      append(0x80 | (character >> 12 & 0x3F));
    }
    append(0x80 | (character >> 6 & 0x3F));
  }
  append(0x80 | (character & 0x3F));
}

}  // namespace kv
