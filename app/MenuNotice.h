#pragma once

#include <QObject>
#include <memory>
#include <utility>

namespace kv {

/// Where script/menus.mjs tells that a menu or an item has changed. Threads: the engine's. Belongs
/// to the engine.
class MenuNotice final : public QObject {
  Q_OBJECT
 public:
  explicit MenuNotice(std::shared_ptr<bool> hasChanged) : hasChanged_(std::move(hasChanged)) {}

  Q_INVOKABLE void changed() { *hasChanged_ = true; }

 private:
  std::shared_ptr<bool> hasChanged_;
};

}  // namespace kv
