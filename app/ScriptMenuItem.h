#pragma once

#include <QJSValue>

#include "app/ScriptEngine.h"
#include "platform/MenuItem.h"

namespace kv {

/// A script's menu item as the scheduler sees it: any object that has a `state`.
///
/// Threads    the engine's.
/// Ownership  keeps the script's object alive; must not be asked after the engine is gone.
/// Errors     a state that is missing, is no number or cannot be read is 0.
class ScriptMenuItem final : public MenuItem {
 public:
  ScriptMenuItem(ScriptEngine& engine, QJSValue object)
      : engine_(engine), object_(std::move(object)) {}

  std::int32_t state() const override { return engine_.readState(object_); }
  void setState(std::int32_t state) override { engine_.writeState(object_, state); }

  /// The object itself, to be given back to the script.
  const QJSValue& object() const { return object_; }

 private:
  ScriptEngine& engine_;
  QJSValue object_;
};

}  // namespace kv
