#pragma once

namespace kv {

/// A font of the desktop's own choice for a purpose, at a size.
struct Font {
  enum class Purpose { kMenuBar };

  static constexpr Font menuBarFontOfSize(double points) {
    return {.purpose = Purpose::kMenuBar, .points = points};
  }

  Purpose purpose = Purpose::kMenuBar;
  double points = 0.0;
};

/// How the lines of a text are set. There is the desktop's default only.
struct ParagraphStyle {};

struct TextAttributes {
  Font font;
  ParagraphStyle paragraphStyle;
};

}  // namespace kv
