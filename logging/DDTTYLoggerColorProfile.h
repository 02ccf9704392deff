#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "logging/LogColor.h"
#include "logging/TerminalColors.h"

namespace kv {

/// The colours of some messages, with the escape sequences made in advance.
///
/// A profile that is made before DDTTYLogger::sharedInstance() has colours and no sequences.
///
/// Threads    never changes; any may read.
/// Units      colour components from 0 to 255.
class DDTTYLoggerColorProfile {
 public:
  /// The context that stands for all of them.
  static constexpr std::int64_t kAnyContext = 2147483647;

  /// A profile for messages whose flag has a bit in common with `flag`. An absent colour leaves the
  /// terminal's own. Components beyond 0 to 1 are taken as the nearest of these, and what is no
  /// number as 0. Null when a colour has no code that fits.
  static std::shared_ptr<const DDTTYLoggerColorProfile> create(
      const std::optional<LogColor>& foreground, const std::optional<LogColor>& background,
      std::uint64_t flag, std::int64_t context,
      const TerminalColors& terminal = TerminalColors::ofProcess());

  std::uint64_t mask() const { return mask_; }
  std::int64_t context() const { return context_; }

  std::uint8_t fg_r() const { return foreground_.components[0]; }
  std::uint8_t fg_g() const { return foreground_.components[1]; }
  std::uint8_t fg_b() const { return foreground_.components[2]; }
  std::uint8_t bg_r() const { return background_.components[0]; }
  std::uint8_t bg_g() const { return background_.components[1]; }
  std::uint8_t bg_b() const { return background_.components[2]; }

  /// The palette's index and code body; 0 and absent where no palette was asked.
  std::size_t fgCodeIndex() const { return foreground_.codeIndex; }
  const std::optional<std::string>& fgCodeRaw() const { return foreground_.codeRaw; }
  std::size_t bgCodeIndex() const { return background_.codeIndex; }
  const std::optional<std::string>& bgCodeRaw() const { return background_.codeRaw; }

  /// The whole escape sequences, each followed by a NUL; empty where there is nothing to say.
  std::string_view fgCode() const { return foreground_.code.text(); }
  std::size_t fgCodeLen() const { return foreground_.code.length; }
  std::string_view bgCode() const { return background_.code.text(); }
  std::size_t bgCodeLen() const { return background_.code.length; }
  /// What ends the colouring.
  std::string_view resetCode() const { return reset_.text(); }
  std::size_t resetCodeLen() const { return reset_.length; }

  /// One line for debugging.
  std::string description() const;

 private:
  template <std::size_t kSize>
  struct EscapeCode {
    std::array<char, kSize> bytes{};
    std::size_t length = 0;

    std::string_view text() const { return {bytes.data(), length}; }
    /// False, and nothing is changed, when the text and its NUL do not fit.
    bool set(std::string_view text);
  };

  /// One of the two colours.
  struct Side {
    std::array<std::uint8_t, 3> components{};
    std::size_t codeIndex = 0;
    std::optional<std::string> codeRaw;
    EscapeCode<24> code;

    /// False when there is no code that fits. `name` is how the development console calls it.
    bool prepare(const LogColor& color, const TerminalColors& terminal,
                 const std::vector<std::string>& (TerminalPalette::*codes)() const,
                 const char* name);
  };

  DDTTYLoggerColorProfile(std::uint64_t flag, std::int64_t context)
      : mask_(flag), context_(context) {}

  const std::uint64_t mask_;
  const std::int64_t context_;
  Side foreground_;
  Side background_;
  EscapeCode<8> reset_;
};

}  // namespace kv
