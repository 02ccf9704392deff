#include "platform/qt/QtMainQueue.h"

#include <QMetaObject>
#include <QObject>
#include <mutex>
#include <utility>

#include "platform/MainQueue.h"

namespace kv {

/// Where wake-ups go. A thread may have taken the waker and use it when the queue has been let go
/// of already: it finds no receiver then.
struct QtMainQueue::Target {
  std::mutex mutex;
  /// Its pending events go with it.
  std::unique_ptr<QObject> receiver = std::make_unique<QObject>();

  void wake() {
    std::lock_guard lock(mutex);
    if (receiver == nullptr) return;
    QMetaObject::invokeMethod(
        receiver.get(), []() noexcept { MainQueue::drain(); }, Qt::QueuedConnection);
  }
};

QtMainQueue::QtMainQueue() : target_(std::make_shared<Target>()) {
  MainQueue::setWaker([target = target_] { target->wake(); });
}

QtMainQueue::~QtMainQueue() {
  MainQueue::setWaker(nullptr);
  std::unique_ptr<QObject> receiver;
  std::lock_guard lock(target_->mutex);
  receiver = std::move(target_->receiver);
}

}  // namespace kv
