#pragma once

#include <QJSValue>
#include <stdexcept>

namespace kv {

/// What JavaScript code threw, on its way through C++ back to where it can be reported or thrown
/// again. It never leaves C++ by itself.
class ScriptError final : public std::runtime_error {
 public:
  explicit ScriptError(const QJSValue& thrown)
      : std::runtime_error(thrown.toString().toStdString()) {}
};

}  // namespace kv
