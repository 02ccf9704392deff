#include "platform/qt/QtDescriptorWatcher.h"

#include <QSocketNotifier>
#include <utility>

namespace kv {
namespace {

class QtWatch final : public DescriptorWatcher::Watch {
 public:
  QtWatch(int descriptor, const std::function<void()>& ready)
      : reading_(descriptor, QSocketNotifier::Read), writing_(descriptor, QSocketNotifier::Write) {
    for (auto* notifier : {&reading_, &writing_}) {
      notifier->setEnabled(false);
      QObject::connect(notifier, &QSocketNotifier::activated, notifier, ready);
    }
  }

  void setWanted(bool reading, bool writing) override {
    reading_.setEnabled(reading);
    writing_.setEnabled(writing);
  }

 private:
  QSocketNotifier reading_;
  QSocketNotifier writing_;
};

}  // namespace

std::unique_ptr<DescriptorWatcher::Watch> QtDescriptorWatcher::watch(int descriptor,
                                                                     std::function<void()> ready) {
  return std::make_unique<QtWatch>(descriptor, ready);
}

}  // namespace kv
