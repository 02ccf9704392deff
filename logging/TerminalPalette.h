#pragma once

#include <cstddef>
#include <string>
#include <vector>

#include "logging/LogColor.h"

namespace kv {

/// The colours that a kind of terminal can show, and the codes that select them.
///
/// A code body is what follows ESC and "[" in the escape sequence. The three lists have the same
/// length; an index means the same colour in each.
///
/// Threads    never changes; any may read.
class TerminalPalette {
 public:
  struct Entry {
    std::string foreground;
    std::string background;
    LogColor color;
  };
  explicit TerminalPalette(const std::vector<Entry>& entries);

  /// The 8 colours of every colour terminal and their bright twins.
  static const TerminalPalette& colors16();
  /// The colours 16 to 255 of a terminal that numbers its colours; entry 0 is number 16. The first
  /// 16 are left out, since users choose them anew to their liking.
  static const TerminalPalette& colors256();

  const std::vector<std::string>& codes_fg() const { return foregroundCodes_; }
  const std::vector<std::string>& codes_bg() const { return backgroundCodes_; }
  const std::vector<LogColor>& colors() const { return colors_; }

  /// The nearest entry, by distance in red, green and blue; of equally near ones the first. 0 for
  /// an empty palette and for a colour that is no number.
  std::size_t codeIndexForColor(const LogColor& color) const;

 private:
  std::vector<std::string> foregroundCodes_;
  std::vector<std::string> backgroundCodes_;
  std::vector<LogColor> colors_;
};

}  // namespace kv
