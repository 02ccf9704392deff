#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

namespace kv {

/// True for well-formed UTF-8 without control characters: what both encodings of a document keep
/// as it is and a terminal shows as it is.
bool isPlainText(std::string_view text);

/// `text` for a terminal or a log: characters that could steer it become "?".
std::string shown(std::string_view text);

/// How many characters `text` has; a column of a table takes as many places.
std::size_t characterCount(std::string_view text);

/// The first `count` characters of `text`.
std::string_view firstCharacters(std::string_view text, std::size_t count);

/// "512 bytes", "1.2 GB": in steps of a thousand.
std::string sizeText(std::uint64_t bytes);

}  // namespace kv
