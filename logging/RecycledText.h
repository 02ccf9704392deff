#pragma once

#include <memory>
#include <string>

#include "logging/LogText.h"

namespace kv {

/// The text that `text` holds when nobody else does any more, else a new one in its place: a
/// formatter makes a new object for each line, and its memory only when somebody keeps the line.
///
/// Threads    the holder's own; who keeps the text reads it only.
inline std::string& recycledText(std::shared_ptr<std::string>& text) {
  if (text == nullptr || !isSoleHolder(text)) text = std::make_shared<std::string>();
  return *text;
}

}  // namespace kv
