#pragma once

#include <functional>

#include "logging/TerminalPalette.h"

namespace kv {

/// How the terminal wants to be told of colours, and which ones it has.
///
/// Threads    a plain value. What holds for the process is settled by the first call of
///            settleForProcess() and may be read on any thread.
struct TerminalColors {
  enum class Kind {
    kNone,   // no colours
    kAnsi,   // escape codes with the palette's numbers
    kXcode,  // the console of a development environment, which takes any colour by its components
  };
  Kind kind = Kind::kNone;
  /// Null when no palette was chosen.
  const TerminalPalette* palette = nullptr;

  /// The value of an environment variable; null when it is not set.
  using Lookup = std::function<const char*(const char* name)>;

  /// What "XcodeColors" (exactly "YES") and otherwise "TERM" say: a terminal whose type has "color"
  /// in it takes codes, and one that has "256" too has the large palette.
  static TerminalColors fromEnvironment(const Lookup& lookup);

  /// What holds for this process: nothing, until it is settled.
  static TerminalColors ofProcess();
  /// Decides by the process's environment, once.
  static void settleForProcess();
  /// Makes `palette`, which must live for good, the process's, unless it has one already.
  static void setPaletteOfProcess(const TerminalPalette& palette);
};

}  // namespace kv
