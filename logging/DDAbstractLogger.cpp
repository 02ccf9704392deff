#include "logging/DDAbstractLogger.h"

#include <cxxabi.h>

#include <cstdlib>
#include <typeinfo>
#include <utility>

#include "logging/DDLog.h"

namespace kv {

void DDAbstractLogger::logMessage(const DDLogMessage& /*message*/) {}

std::shared_ptr<DDLogFormatter> DDAbstractLogger::logFormatter() {
  std::shared_ptr<DDLogFormatter> formatter;
  syncBetweenMessages([&] { formatter = logFormatter_; });
  return formatter;
}

void DDAbstractLogger::setLogFormatter(std::shared_ptr<DDLogFormatter> formatter) {
  asyncBetweenMessages([this, formatter = std::move(formatter)] { exchangeFormatter(formatter); });
}

void DDAbstractLogger::exchangeFormatter(std::shared_ptr<DDLogFormatter> formatter) {
  if (formatter == logFormatter_) return;
  if (logFormatter_ != nullptr) logFormatter_->willRemoveFromLogger(*this);
  logFormatter_ = std::move(formatter);
  if (logFormatter_ != nullptr) logFormatter_->didAddToLogger(*this);
}

std::shared_ptr<SerialQueue> DDAbstractLogger::loggerQueue() {
  const std::lock_guard lock(queueMutex_);
  if (loggerQueue_ == nullptr && !isQueueSet_) {
    loggerQueue_ = std::make_shared<SerialQueue>(loggerName());
    loggerQueue_->setSpecific(this, this);
  }
  return loggerQueue_;
}

void DDAbstractLogger::setLoggerQueue(std::shared_ptr<SerialQueue> queue) {
  const std::lock_guard lock(queueMutex_);
  loggerQueue_ = std::move(queue);
  isQueueSet_ = true;
}

std::string DDAbstractLogger::loggerName() const {
  const char* const mangled = typeid(*this).name();
  int status = 0;
  const std::unique_ptr<char, decltype(&std::free)> name(
      abi::__cxa_demangle(mangled, nullptr, nullptr, &status), &std::free);
  const std::string full = status == 0 ? name.get() : mangled;
  const auto scope = full.rfind("::");
  return scope == std::string::npos ? full : full.substr(scope + 2);
}

bool DDAbstractLogger::isOnGlobalLoggingQueue() const {
  return SerialQueue::currentSpecific(DDLog::GlobalLoggingQueueIdentityKey) != nullptr;
}

bool DDAbstractLogger::isOnInternalLoggerQueue() const {
  return SerialQueue::currentSpecific(this) != nullptr;
}

void DDAbstractLogger::asyncBetweenMessages(std::function<void()> work) {
  DDLog::loggingQueue()->async([self = shared_from_this(), work = std::move(work)]() mutable {
    if (const auto queue = self->loggerQueue()) {
      queue->async([self, work = std::move(work)] { work(); });
    } else {
      work();
    }
  });
}

void DDAbstractLogger::syncBetweenMessages(const std::function<void()>& work) {
  DDLog::loggingQueue()->sync([&] {
    if (const auto queue = loggerQueue()) {
      queue->sync(work);
    } else {
      work();
    }
  });
}

}  // namespace kv
