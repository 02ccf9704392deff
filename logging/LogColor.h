#pragma once

#include <cstdint>

namespace kv {

/// A colour as a terminal shows it. Where a colour may be absent it is an optional one.
///
/// Threads    a plain value.
/// Units      components from 0.0 (none of it) to 1.0 (all of it).
struct LogColor {
  double red = 0;
  double green = 0;
  double blue = 0;

  static constexpr LogColor fromBytes(std::uint8_t red, std::uint8_t green, std::uint8_t blue) {
    return {red / 255.0, green / 255.0, blue / 255.0};
  }
};

}  // namespace kv
