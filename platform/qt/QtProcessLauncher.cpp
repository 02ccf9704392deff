#include "platform/qt/QtProcessLauncher.h"

#include <QProcess>
#include <QString>
#include <QStringList>
#include <condition_variable>
#include <deque>
#include <mutex>
#include <thread>

#include "platform/PlatformError.h"

namespace kv {
namespace {

/// Null when the program was started, else the reason why not.
std::optional<std::string> startDetached(const QString& executable, const QStringList& arguments) {
  QProcess process;
  process.setProgram(executable);
  process.setArguments(arguments);
  // Only the object's own startDetached tells why it failed, and only when asked for the id.
  qint64 identifier = 0;
  if (process.startDetached(&identifier)) return std::nullopt;
  return process.errorString().toStdString();
}

}  // namespace

/// The thread that forks, and the requests that wait for it.
class QtProcessLauncher::Forker {
 public:
  Forker() : thread_([this] { serve(); }) {}

  ~Forker() {
    {
      const std::lock_guard lock(mutex_);
      ending_ = true;
    }
    wake_.notify_one();
    thread_.join();
  }

  std::optional<std::string> start(const QString& executable, const QStringList& arguments) {
    Request request{executable, arguments, std::nullopt, false};
    std::unique_lock lock(mutex_);
    requests_.push_back(&request);
    wake_.notify_one();
    served_.wait(lock, [&] { return request.served; });
    return request.failure;
  }

 private:
  /// Lives on the stack of the thread that waits for it.
  struct Request {
    const QString& executable;
    const QStringList& arguments;
    std::optional<std::string> failure;
    bool served;
  };

  void serve() {
    std::unique_lock lock(mutex_);
    while (true) {
      wake_.wait(lock, [this] { return ending_ || !requests_.empty(); });
      if (requests_.empty()) return;
      Request& request = *requests_.front();
      requests_.pop_front();
      lock.unlock();
      request.failure = startDetached(request.executable, request.arguments);
      lock.lock();
      request.served = true;
      served_.notify_all();
    }
  }

  std::mutex mutex_;
  std::condition_variable wake_;
  std::condition_variable served_;
  std::deque<Request*> requests_;
  bool ending_ = false;
  std::thread thread_;  // last: it uses all the others
};

QtProcessLauncher::QtProcessLauncher() : forker_(std::make_unique<Forker>()) {}
QtProcessLauncher::~QtProcessLauncher() = default;

void QtProcessLauncher::start(const std::string& executable,
                              const std::optional<std::vector<std::string>>& arguments) {
  if (!executable.starts_with('/')) {
    throw PlatformError("cannot start \"" + executable + "\": the path is not absolute");
  }
  QStringList list;
  for (const std::string& argument : arguments.value_or(std::vector<std::string>())) {
    // The system would cut it there, and another argument than the one meant would arrive.
    if (argument.find('\0') != std::string::npos) {
      throw PlatformError("cannot start \"" + executable + "\": an argument holds U+0000");
    }
    list.append(QString::fromStdString(argument));
  }
  if (const auto failure = forker_->start(QString::fromStdString(executable), list)) {
    throw PlatformError("cannot start \"" + executable + "\": " + *failure);
  }
}

}  // namespace kv
